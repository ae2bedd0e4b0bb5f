// Start of a role, from exec to exit, against a trivial C program and busybox's
// true in the same run: wall time (the best of interleaved rounds),
// instructions (callgrind, loader included), resident memory. It runs in a
// private root with a model description and no log, under which the roles do
// nothing but answer.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "build_paths.h"
#include "tests/support/private_mounts.h"

namespace {

constexpr int kRounds = 20, kRunsPerRound = 50;

struct Program {
  const char *path; // in the private root
  const char *from; // what it is, in the build tree or on the host
  double best_us = 1e9;
  long instructions = 0;
  long resident_kib = 0;
};

bool root_make(const std::array<Program, 4> &programs) {
  if (!private_mounts_enter() ||
      mount("root", "/mnt", "tmpfs", 0, nullptr) != 0)
    return false;
  for (const char *shared : {"/usr", "/lib", "/lib64", "/proc"}) {
    const std::string inside = std::string("/mnt") + shared;
    if (!std::filesystem::exists(shared))
      continue;
    std::filesystem::create_directory(inside);
    if (mount(shared, inside.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
      return false;
  }
  std::filesystem::create_directory_symlink(
      "usr/bin", "/mnt/bin"); // valgrind is a shell script
  std::filesystem::create_directory("/mnt/dev");
  const std::ofstream null_device(
      "/mnt/dev/null"); // something to bind the real one on
  std::filesystem::create_directory("/mnt/tmp");
  std::filesystem::create_directory("/mnt/etc.defaults");
  std::ofstream("/mnt/etc.defaults/norvinfo.conf")
      << "unique=\"norv_x86_bench\"\nmaxdisks=\"4\"\n"
         "supportraid=\"yes\"\nsupplang=\"enu,ger,fre\"\n";
  for (const Program &program : programs)
    std::filesystem::copy_file(program.from,
                               std::string("/mnt") + program.path);
  return chroot("/mnt") == 0 && chdir("/") == 0;
}

// Starts a program with its output at `out_fd` and waits for it. Returns
// whether it ended with 0.
bool run_once(const char *path, char *const argv[], int out_fd) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out_fd, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out_fd, STDERR_FILENO);
  char language[] = "HTTP_ACCEPT_LANGUAGE=de-AT,de;q=0.9,en;q=0.5",
       paths[] = "PATH=/usr/bin";
  char *const environment[] = {paths, language, nullptr};
  pid_t pid = 0;
  int status = -1;
  const bool started =
      posix_spawn(&pid, path, &actions, nullptr, argv, environment) == 0;
  posix_spawn_file_actions_destroy(&actions);
  return started && waitpid(pid, &status, 0) == pid && status == 0;
}

void time_round(Program &program, int out_fd) {
  char *const argv[] = {const_cast<char *>(program.path), nullptr};
  for (int i = 0; i < kRunsPerRound; i++) {
    const auto start = std::chrono::steady_clock::now();
    if (!run_once(program.path, argv, out_fd))
      exit(1);
    const std::chrono::duration<double, std::micro> taken =
        std::chrono::steady_clock::now() - start;
    program.best_us = std::min(program.best_us, taken.count());
  }
}

void count_instructions(Program &program) {
  char tool[] = "valgrind", kind[] = "--tool=callgrind",
       file[] = "--callgrind-out-file=/dev/null", db[] = "--vgdb=no";
  char *const argv[] = {
      tool, kind, file, db, const_cast<char *>(program.path), nullptr};
  const int out_fd = open("/tmp/out", O_RDWR | O_CREAT | O_TRUNC, 0600);
  run_once("/usr/bin/valgrind", argv, out_fd);
  close(out_fd);
  std::ifstream file_in("/tmp/out");
  const std::string out{std::istreambuf_iterator<char>(file_in), {}};
  const size_t at = out.find("refs:");
  for (size_t i = at; at != std::string::npos && out[i] != '\n'; i++)
    if (out[i] >= '0' && out[i] <= '9')
      program.instructions = program.instructions * 10 + (out[i] - '0');
}

// The high-water mark as it stands when the program ends; what wait4 tells
// begins with that of the caller.
void measure_resident(Program &program, int out_fd) {
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out_fd, STDOUT_FILENO);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execl(program.path, program.path, nullptr);
    _exit(1);
  }
  int status = 0;
  waitpid(pid, &status, 0); // stopped by exec
  ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACEEXIT);
  ptrace(PTRACE_CONT, pid, nullptr, nullptr);
  waitpid(pid, &status, 0); // stopped on its way out
  std::ifstream file("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(file, line);)
    if (line.starts_with("VmHWM:"))
      program.resident_kib = strtol(line.c_str() + 6, nullptr, 10);
  ptrace(PTRACE_CONT, pid, nullptr, nullptr);
  waitpid(pid, &status, 0);
}

} // namespace

int main() {
  std::array<Program, 4> programs = {{
      {"/trivial", NORV_BINARY_DIR "/bench/startup_trivial"},
      {"/true", "/usr/bin/busybox"},
      {"/norvhwctrl", NORV_BINARY_DIR "/norv"},
      {"/session.cgi", NORV_BINARY_DIR "/norv"},
  }};
  const int null_fd =
      open("/dev/null",
           O_WRONLY | O_CLOEXEC); // the host's; the root has a plain file there
  if (!root_make(programs)) {
    perror("startup_bench: no private root");
    return 1;
  }
  for (int round = 0; round < kRounds; round++)
    for (Program &program : programs)
      time_round(program, null_fd);
  printf("%-14s %9s %9s %13s %13s\n", "program", "best us", "ratio",
         "instructions", "resident KiB");
  for (Program &program : programs) {
    count_instructions(program);
    measure_resident(program, null_fd);
    printf("%-14s %9.1f %9.2f %13ld %13ld\n", program.path + 1, program.best_us,
           program.best_us / programs[0].best_us, program.instructions,
           program.resident_kib);
  }
  puts("goals of a role: ratio 1.15, 260000 instructions, 1741 KiB");
  return 0;
}

// Start of a role, from exec to exit, against a trivial C program and busybox's true in the same run: wall time (the
// best of interleaved rounds), instructions (callgrind, loader included), resident memory. It runs in a private root
// with a model description and no log, under which the roles do nothing but answer.
#include <algorithm>
#include <array>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "bench/figure.h"
#include "bench/private_root.h"
#include "build_paths.h"

namespace
{

constexpr int kRounds = 20, kRunsPerRound = 50;

struct Program {
    const char *path; // in the private root
    const char *from; // what it is, in the build tree or on the host
    double best_us = 1e9;
    long instructions = 0;
    long resident_kib = 0;
};

void time_round(Program &program, int out_fd)
{
    for (int i = 0; i < kRunsPerRound; i++)
        program.best_us = std::min(program.best_us, program_wall_us({program.path}, out_fd));
}

void count_instructions(Program &program)
{
    const int out_fd = open("/tmp/out", O_RDWR | O_CREAT | O_TRUNC, 0600);
    const bool is_run = program_run(
        {"/usr/bin/valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--vgdb=no", program.path}, out_fd);
    close(out_fd);
    if (!is_run)
        program_failed("valgrind");
    std::ifstream file_in("/tmp/out");
    const std::string out{std::istreambuf_iterator<char>(file_in), {}};
    const size_t at = out.find("refs:");
    for (size_t i = at; at != std::string::npos && out[i] != '\n'; i++)
        if (out[i] >= '0' && out[i] <= '9')
            program.instructions = program.instructions * 10 + (out[i] - '0');
}

// The high-water mark as it stands when the program ends; what wait4 tells begins with that of the caller.
void measure_resident(Program &program, int out_fd)
{
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
    if (program.resident_kib == 0 || status != 0)
        program_failed(program.path);
}

} // namespace

int main()
{
    std::array<Program, 4> programs = {{
        {"/trivial", NORV_BINARY_DIR "/bench/startup_trivial"},
        {"/true", "/usr/bin/busybox"},
        {"/norvhwctrl", NORV_BINARY_DIR "/norv"},
        {"/session.cgi", NORV_BINARY_DIR "/norv"},
    }};
    const int null_fd = open("/dev/null", O_WRONLY | O_CLOEXEC); // the host's; the root has a plain file there
    std::vector<std::pair<std::string, std::string>> files;
    for (const Program &program : programs)
        files.emplace_back(program.path, program.from);
    if (!private_root_enter(files)) {
        perror("startup_bench: no private root");
        return 1;
    }
    for (int round = 0; round < kRounds; round++)
        for (Program &program : programs)
            time_round(program, null_fd);
    for (Program &program : programs) {
        count_instructions(program);
        measure_resident(program, null_fd);
        const std::string name = program.path + 1;
        figure_print((name + ", start to end").c_str(), program.best_us, "us");
        figure_print((name + ", instructions").c_str(), static_cast<double>(program.instructions), "instructions");
        figure_print((name + ", resident").c_str(), static_cast<double>(program.resident_kib), "KiB");
    }
    return 0;
}

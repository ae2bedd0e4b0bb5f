// A root of one's own in which roles do nothing but answer, and whole programs run in it and timed.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tests/support/private_mounts.h"

// Makes a root on a memory file system with the machine's libraries, a model description and no log, and moves there.
//   programs  where each stands in it, and the file that it is
inline bool private_root_enter(const std::vector<std::pair<std::string, std::string>> &programs)
{
    if (!private_mounts_enter() || mount("root", "/mnt", "tmpfs", 0, nullptr) != 0)
        return false;
    for (const char *shared : {"/usr", "/lib", "/lib64", "/proc"}) {
        const std::string inside = std::string("/mnt") + shared;
        if (!std::filesystem::exists(shared))
            continue;
        std::filesystem::create_directory(inside);
        if (mount(shared, inside.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
            return false;
    }
    std::filesystem::create_directory_symlink("usr/bin", "/mnt/bin"); // valgrind is a shell script
    for (const char *folder : {"/mnt/dev", "/mnt/tmp", "/mnt/var/run", "/mnt/etc.defaults"})
        std::filesystem::create_directories(folder);
    const std::ofstream null_device("/mnt/dev/null"); // something to bind the real one on
    std::ofstream("/mnt/etc.defaults/norvinfo.conf") << "unique=\"norv_x86_bench\"\nmaxdisks=\"4\"\n"
                                                        "supportraid=\"yes\"\nsupplang=\"enu,ger,fre\"\n"
                                                        "rss_server_ssl=\"file:///feed\"\n";
    for (const auto &[path, file] : programs) {
        const std::filesystem::path inside = "/mnt" + path;
        std::filesystem::create_directories(inside.parent_path());
        std::filesystem::copy_file(file, inside);
    }
    return chroot("/mnt") == 0 && chdir("/") == 0;
}

// Starts a program with its output at `out_fd` and waits for it. Returns whether it ended with 0; `used` receives what
// it took, its own programs included.
inline bool program_run(std::vector<std::string> words, int out_fd, rusage *used = nullptr)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out_fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out_fd, STDERR_FILENO);
    char language[] = "HTTP_ACCEPT_LANGUAGE=de-AT,de;q=0.9,en;q=0.5", paths[] = "PATH=/usr/bin";
    char *const environment[] = {paths, language, nullptr};
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    int status = -1;
    const bool started = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environment) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return started && wait4(pid, &status, 0, used) == pid && status == 0;
}

[[noreturn]] inline void program_failed(const std::string &path)
{
    fprintf(stderr, "%s failed\n", path.c_str());
    exit(1);
}

// How long that takes, and how much of it the processor works. A program that fails ends the bench.
inline double program_wall_us(const std::vector<std::string> &words, int out_fd)
{
    const auto start = std::chrono::steady_clock::now();
    if (!program_run(words, out_fd))
        program_failed(words[0]);
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}
inline double program_cpu_us(const std::vector<std::string> &words, int out_fd)
{
    rusage used = {};
    if (!program_run(words, out_fd, &used))
        program_failed(words[0]);
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) * 1e6 +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec);
}

// Checking a folder against its list, as norvchecksum does, against starting
// the checksum program for each of its files and doing nothing else: 2000 small
// files, where starting is the work, and one of 500 MiB, where reading is. Wall
// time, the best of interleaved rounds, on a memory file system.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "build_paths.h"
#include "lib/cksum/cksum.h"
#include "tests/support/private_mounts.h"

namespace
{

constexpr char kTool[] = "/usr/bin/cksum"; // ours, in place of the machine's

struct Case {
    const char *name, *folder;
    size_t files, file_bytes;
    int rounds;
    double goal; // ratio
};
constexpr Case kCases[] = {
    {"2000 files of 100 bytes", "/tmp/small", 2000, 100, 10, 1.08},
    {"1 file of 500 MiB", "/tmp/large", 1, 500 << 20, 10, 1.05},
};

bool tool_run(const std::string &path)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/tmp/output", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::string words[] = {kTool, "-o", "3", path};
    char *const argv[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
    pid_t pid = 0;
    int status = -1;
    const bool started = posix_spawn(&pid, kTool, &actions, nullptr, argv, environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return started && waitpid(pid, &status, 0) == pid && status == 0;
}

// Files of zeros, and their list: each spot is at the file's beginning, its
// value 0.
std::vector<std::string> folder_make(const Case &row)
{
    std::filesystem::create_directory(row.folder);
    const std::string content(row.file_bytes, '\0');
    std::vector<std::string> paths;
    std::ofstream list(std::string(row.folder) + "/" + kChecksumListName);
    std::string sum;
    for (size_t i = 0; i < row.files; i++) {
        const std::string name = "file" + std::to_string(i);
        paths.push_back(std::string(row.folder) + "/" + name);
        std::ofstream(paths.back()) << content;
        if (sum.empty() && tool_run(paths.back()))
            std::ifstream("/tmp/output") >> sum;
        list << sum << " " << row.file_bytes << " " << name << " " << row.file_bytes << " 0\n";
    }
    list << "# Norvcksum " << row.files * row.file_bytes << " " << row.files * row.file_bytes << " 0\n";
    return paths;
}

template <typename Work> double milliseconds(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    if (!work()) {
        fputs("checksum_bench: the work failed\n", stderr);
        exit(1);
    }
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main()
{
    if (!private_mounts_enter() || mount("tmp", "/tmp", "tmpfs", 0, nullptr) != 0 ||
        mount(NORV_BINARY_DIR "/platform/programs/cksum", kTool, nullptr, MS_BIND, nullptr) != 0) {
        perror("checksum_bench: no mounts of its own");
        return 1;
    }
    printf("%-26s %10s %10s %7s %6s\n", "folder", "tool ms", "check ms", "ratio", "goal");
    for (const Case &row : kCases) {
        const std::vector<std::string> paths = folder_make(row);
        double tool_ms = 1e9, check_ms = 1e9;
        for (int round = 0; round < row.rounds; round++) {
            tool_ms = std::min(tool_ms, milliseconds([&] { return std::ranges::all_of(paths, tool_run); }));
            check_ms =
                std::min(check_ms, milliseconds([&] { return CheckDirChecksum(row.folder, 0) == kChecksumGood; }));
        }
        printf("%-26s %10.1f %10.1f %7.3f %6.2f\n", row.name, tool_ms, check_ms, check_ms / tool_ms, row.goal);
    }
    return 0;
}

// Checking a folder against its list, as norvchecksum does, against starting the checksum program for each of its files
// and doing nothing else: 2000 small files, where starting is the work, and one of 500 MiB, where reading is. Time
// of the processor, programs included, the best of interleaved rounds, on a memory file system.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "autocleanup/unique.h"
#include "bench/figure.h"
#include "bench/private_root.h"
#include "build_paths.h"
#include "lib/cksum/cksum.h"

namespace
{

constexpr char kTool[] = "/usr/bin/cksum"; // ours, in place of the machine's

constexpr int kRounds = 10;

struct Case {
    const char *tool_figure, *check_figure, *folder;
    size_t files, file_bytes;
};
constexpr Case kCases[] = {
    {"tool, 2000 files of 100 bytes", "check, 2000 files of 100 bytes", "/tmp/small", 2000, 100},
    {"tool, 1 file of 500 MiB", "check, 1 file of 500 MiB", "/tmp/large", 1, 500 << 20},
};

bool tool_run(const std::string &path)
{
    const UniqueFd output(open("/tmp/output", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    return program_run({kTool, "-o", "3", path}, output.get());
}

// Files of zeros, and their list: each spot is at the file's beginning, its value 0.
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

// What this process and the programs that it waited for have used.
double used_ms()
{
    double ms = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage used = {};
        getrusage(who, &used);
        for (const timeval &time : {used.ru_utime, used.ru_stime})
            ms += static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    }
    return ms;
}

template <typename Work> double milliseconds(Work work)
{
    const double before_ms = used_ms();
    if (!work()) {
        fputs("checksum_bench: the work failed\n", stderr);
        exit(1);
    }
    return used_ms() - before_ms;
}

} // namespace

int main()
{
    if (!private_mounts_enter() || mount("tmp", "/tmp", "tmpfs", 0, nullptr) != 0 ||
        mount(NORV_BINARY_DIR "/platform/programs/cksum", kTool, nullptr, MS_BIND, nullptr) != 0) {
        perror("checksum_bench: no mounts of its own");
        return 1;
    }
    for (const Case &row : kCases) {
        const std::vector<std::string> paths = folder_make(row);
        double tool_ms = 1e9, check_ms = 1e9;
        for (int round = 0; round < kRounds; round++) {
            tool_ms = std::min(tool_ms, milliseconds([&] { return std::ranges::all_of(paths, tool_run); }));
            check_ms =
                std::min(check_ms, milliseconds([&] { return CheckDirChecksum(row.folder, 0) == kChecksumGood; }));
        }
        figure_print(row.tool_figure, tool_ms, "ms");
        figure_print(row.check_figure, check_ms, "ms");
    }
    return 0;
}

// The role that downloads, from exec to exit, against the same executable with libcurl linked, so that all of it is
// there before main: a feed of a few lines, where loading is the work, and one of 64 MiB, where the transfer is. Time
// of the processor, the best of interleaved rounds, in a private root; the feed is a file, so that no server takes
// part.
#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <unistd.h>

#include "bench/figure.h"
#include "bench/private_root.h"
#include "build_paths.h"

namespace
{

constexpr char kLate[] = "/late/norvupgrade", kLinked[] = "/linked/norvupgrade";

struct Case {
    const char *late_figure, *linked_figure;
    size_t feed_bytes;
    int rounds;
};
constexpr Case kCases[] = {
    {"late, feed of 200 bytes", "linked, feed of 200 bytes", 0, 500},
    {"late, feed of 64 MiB", "linked, feed of 64 MiB", 64 << 20, 40},
};

// What stands behind the patch that is taken is fetched, and not read.
void feed_make(size_t padding_bytes)
{
    std::ofstream("/feed") << "<MajorVer>7</MajorVer>\n<MinorVer>2</MinorVer>\n<BuildNum>300</BuildNum>\n"
                              "<mUnique>norv_x86_bench</mUnique>\n<mLink>https://h/a.pat</mLink>\n"
                              "<mCheckSum>12ab</mCheckSum>\n"
                           << std::string(padding_bytes, 'x');
}

} // namespace

int main()
{
    const int null_fd = open("/dev/null", O_WRONLY | O_CLOEXEC); // the host's; the root has a plain file there
    if (!private_root_enter({{kLate, NORV_BINARY_DIR "/norv"}, {kLinked, NORV_BINARY_DIR "/bench/norv_curl_linked"}})) {
        perror("download_bench: no private root");
        return 1;
    }
    std::ofstream("/etc.defaults/VERSION") << "majorversion=7\nminorversion=1\nbuildphase=hotfix\nbuildnumber=200\n"
                                              "builddate=2020/1/1\nproductversion=\"7.1.1\"\n";
    for (const Case &row : kCases) {
        feed_make(row.feed_bytes);
        double linked_us = 1e9, late_us = 1e9;
        for (int round = 0; round < row.rounds; round++) {
            linked_us = std::min(linked_us, program_cpu_us({kLinked, "--check"}, null_fd));
            late_us = std::min(late_us, program_cpu_us({kLate, "--check"}, null_fd));
        }
        figure_print(row.linked_figure, linked_us, "us");
        figure_print(row.late_figure, late_us, "us");
    }
    return 0;
}

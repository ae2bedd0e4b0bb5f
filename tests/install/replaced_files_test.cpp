// Files at fixed paths that are replaced by a rename: whatever call fails and whenever the process is killed, a reader
// finds the old text or the new one, and no copy stays behind.
#include <cstring>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <unistd.h>

#include "install/download_state.h"
#include "net/norvjnet.h"
#include "tests/support/points.h"
#include "tests/support/private_root.h"
#include "tests/support/sweep.h"

namespace
{

struct Replaced {
    const char *path, *before, *after;
    int (*work)();
};
const Replaced kFiles[] = {
    {"etc/resolv.conf", "nameserver\t10.0.0.1\n", "nameserver\t10.0.0.2\n", [] { return NORVJNetSetDNS("10.0.0.2"); }},
    {"var/run/downloadNOS.status", "1 100 /old http://old", "0 0 /a.pat http://b/a.pat",
     [] { return download_state_begin("/a.pat", "http://b/a.pat"); }},
};

TEST(ReplacedFiles, OldOrNewAndNothingBeside)
{
    if (!PrivateRoot::allowed())
        GTEST_SKIP() << "the kernel gives no root of its own to this user";
    int points = 0;
    for (const Replaced &file : kFiles) {
        const std::string folder = std::string(file.path, strrchr(file.path, '/'));
        const SweepReport report =
            sweep({.function =
                       [&](const std::string &tree) {
                           const bool is_root =
                               chroot(tree.c_str()) == 0 || (unshare(CLONE_NEWUSER) == 0 && chroot(tree.c_str()) == 0);
                           return is_root && chdir("/") == 0 ? file.work() : -1;
                       },
                   .tree = {{file.path, file.before}},
                   .check = [&](const SweepRun &run) -> std::string {
                       const auto text = run.content(file.path);
                       if (text != file.before && text != file.after)
                           return "the file is " + text.value_or("gone");
                       if (!run.killed && (run.result == 0) != (text == file.after))
                           return "result " + std::to_string(run.result);
                       if (run.fault == SweepFault::kNone && run.result != 0)
                           return "failed";
                       if (!run.left_open.empty())
                           return "left open: " + run.left_open[0];
                       const auto files = run.entries().size() - (folder.find('/') == std::string::npos ? 1U : 2U);
                       return run.killed || run.failed("unlink") || files == 1 ? "" : "left its copy";
                   }});
        EXPECT_EQ(report.complaints, "") << file.path;
        points += report.runs;
    }
    points_tried(points);
    EXPECT_GT(points, 40);
}

} // namespace

// The sweep held against work whose faults are known.
#include "tests/support/sweep.h"

#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/report.h"

namespace
{

constexpr char kOld[] = "old text\n", kNew[] = "a new text\n";

bool put(int fd)
{
    return write(fd, kNew, strlen(kNew)) == static_cast<ssize_t>(strlen(kNew));
}

// Replaces the file through a synced temporary one. Returns 0 or -1.
int replace_well(const std::string &tree)
{
    const std::string path = tree + "/a.conf", temp = path + ".new";
    UniqueFd fd(open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd)
        return fail(kErrOpen);
    const bool written = put(fd.get()) && fsync(fd.get()) == 0;
    const bool closed = close(fd.release()) == 0;
    if (written && closed && rename(temp.c_str(), path.c_str()) == 0)
        return 0;
    unlink(temp.c_str());
    return fail(kErrWrite);
}

int replace_in_place(const std::string &tree) // loses the old text first
{
    const UniqueFd fd(open((tree + "/a.conf").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    return fd && put(fd.get()) ? 0 : -1;
}

int replace_unchecked(const std::string &tree) // does not look at the result of its writing
{
    const std::string path = tree + "/a.conf", temp = path + ".new";
    const UniqueFd fd(open(temp.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    static_cast<void>(put(fd.get()));
    return rename(temp.c_str(), path.c_str());
}

int replace_and_leak(const std::string &tree) // keeps the descriptor where the write fails
{
    const int fd = open((tree + "/b").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || !put(fd))
        return -1;
    return close(fd) == 0 ? 0 : -1;
}

int replace_in_child(const std::string &tree)
{
    const pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0)
        _exit(replace_well(tree) == 0 ? 0 : 1);
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : -1;
}

// The file is the complete old or the complete new one, and nothing is left over.
std::string whole(const SweepRun &run)
{
    const auto text = run.content("a.conf");
    if (text != kOld && text != kNew)
        return "torn file";
    if (run.result == 0 && text != kNew)
        return "success without the new text";
    if (run.fault == SweepFault::kNone && run.result != 0)
        return "failed";
    if (!run.left_open.empty())
        return "left open: " + run.left_open[0];
    if (!run.killed && !run.failed("unlink") && run.entries() != std::vector<std::string>{"a.conf"})
        return "left a temporary file";
    return "";
}

const std::vector<SweepFile> kTree = {{"a.conf", kOld}};

TEST(Sweep, SoundWorkPasses)
{
    const auto check = [](const SweepRun &run) {
        const int code = run.failed("openat") ? kErrOpen : kErrWrite;
        if (run.fault != SweepFault::kNone && (run.result != -1 || (!run.killed && run.error_code != code)))
            return std::string("another result");
        return whole(run);
    };
    const SweepReport report = sweep({.function = replace_well, .tree = kTree, .check = check});
    EXPECT_EQ(report.complaints, "");
    EXPECT_EQ(report.runs, 1 + 5 * (5 + 5 + 1)); // five calls: openat, write, fsync, close, rename
    EXPECT_EQ(
        calls_not_in_order(report.calls, {"openat /a.conf.new 02001101 0644", "write /a.conf.new 11",
                                          "fsync /a.conf.new", "close /a.conf.new", "rename /a.conf.new /a.conf"}),
        "");
    EXPECT_NE(calls_not_in_order(report.calls, {"rename", "fsync"}), "");
}

TEST(Sweep, FaultsAreFound)
{
    static const struct {
        int (*function)(const std::string &tree);
        const char *complaint;
    } kCases[] = {
        {replace_in_place, "write /a.conf 11, killed: torn file\n"},
        {replace_in_place, "write /a.conf 11, ENOSPC once: torn file\n"},
        {replace_unchecked, "write /a.conf.new 11, EIO once: torn file\n"},
        {replace_unchecked, "rename /a.conf.new /a.conf, EDQUOT for good: left a temporary file\n"},
        {replace_and_leak, "write /b 11, EMFILE for good: left open: "},
    };
    for (const auto &[function, complaint] : kCases) {
        const auto check = [](const SweepRun &run) {
            const bool clean = run.fault == SweepFault::kNone;
            return clean ? std::string() : whole(run);
        };
        const SweepReport report = sweep({.function = function, .tree = kTree, .check = check});
        EXPECT_NE(report.complaints.find(complaint), std::string::npos) << complaint << "in:\n" << report.complaints;
    }
}

TEST(Sweep, ChildrenAreFollowed)
{
    const SweepRow row = {.function = replace_in_child, .tree = kTree, .check = whole, .errors_for_good = {EIO}};
    const SweepReport report = sweep(row);
    EXPECT_EQ(report.complaints, "");
    int of_child = 0;
    for (const SystemCall &call : report.calls)
        of_child += call.swept && call.process == 1 ? 1 : 0;
    EXPECT_EQ(of_child, 5);
}

TEST(Sweep, EndlessWorkAndCrashesAreComplaints)
{
    const auto fine = [](const SweepRun & /*run*/) { return std::string(); };
    const auto retry_for_ever = [](const std::string & /*tree*/) {
        while (access(".", F_OK) != 0)
            sleep(1000); // passes at once
        return 0;
    };
    const auto crash = [](const std::string & /*tree*/) {
        if (access(".", F_OK) != 0)
            abort();
        if (access("/", F_OK) != 0)
            _exit(1); // as a sanitizer does
        return 0;
    };
    const SweepReport endless =
        sweep({.function = retry_for_ever, .check = fine, .errors = {EIO}, .errors_for_good = {EIO}, .kill = false});
    EXPECT_EQ(endless.complaints, "access /., EIO for good: makes calls without end\n");
    const SweepReport crashed =
        sweep({.function = crash, .check = fine, .errors = {EIO}, .errors_for_good = {}, .kill = false});
    EXPECT_EQ(crashed.complaints, "access /., EIO once: ended by signal 6\n\n"
                                  "access /, EIO once: ended before it returned\n\n");
}

} // namespace

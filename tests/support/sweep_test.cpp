// The sweep held against work whose faults are known: a sweep that finds nothing proves nothing.
#include "tests/support/sweep.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "autocleanup/unique.h"

namespace
{

constexpr char kOld[] = "old text\n", kNew[] = "a new text\n";

bool put(int fd)
{
    return write(fd, kNew, strlen(kNew)) == static_cast<ssize_t>(strlen(kNew));
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
    if (child == 0)
        _exit(replace_in_place(tree) == 0 ? 0 : 1);
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0 ? 0 : -1;
}

int retry_for_ever(const std::string & /*tree*/)
{
    while (access(".", F_OK) != 0)
        sleep(1000); // passes at once
    return 0;
}

int crash(const std::string & /*tree*/)
{
    if (access(".", F_OK) != 0)
        abort();
    if (access("/", F_OK) != 0)
        _exit(1); // as a sanitizer does
    return 0;
}

// The file is the complete old or the complete new one, and nothing is left over.
std::string whole(const SweepRun &run)
{
    const auto text = run.content("a.conf");
    if (text != kOld && text != kNew)
        return "torn file";
    if (!run.left_open.empty())
        return "left open: " + run.left_open[0];
    if (run.fault != SweepFault::kNone && !run.killed && run.entries() != std::vector<std::string>{"a.conf"})
        return "left a temporary file";
    return "";
}

TEST(Sweep, FaultsAreFound)
{
    static const struct {
        int (*function)(const std::string &tree);
        std::vector<const char *> complaints;
    } kCases[] = {
        {replace_in_place,
         {"write /a.conf 11, killed: torn file\n", "write /a.conf 11, ENOSPC once: torn file\n",
          "write /a.conf 11, EIO for good: torn file\n"}},
        {replace_unchecked,
         {"write /a.conf.new 11, EIO once: torn file\n",
          "rename /a.conf.new /a.conf, EDQUOT for good: left a temporary file\n"}},
        {replace_and_leak, {"write /b 11, EMFILE for good: left open: "}},
        {replace_in_child, {"write /a.conf 11, killed: torn file\n"}},
        {retry_for_ever, {"access /., EIO for good: makes calls without end\n"}},
        {crash, {"access /., EIO once: ended by signal 6\n", "access /, EIO once: ended before it returned\n"}},
    };
    for (const auto &[function, complaints] : kCases) {
        const SweepReport report = sweep({.function = function, .tree = {{"a.conf", kOld}}, .check = whole});
        for (const char *complaint : complaints)
            EXPECT_NE(report.complaints.find(complaint), std::string::npos) << complaint << "in:\n"
                                                                            << report.complaints;
    }
    const SweepReport other = sweep({.function = crash, .check = [](const SweepRun &) { return ""; }, .errors = {}});
    EXPECT_NE(calls_not_in_order(other.calls, {"access /", "access /."}), "");
}

} // namespace

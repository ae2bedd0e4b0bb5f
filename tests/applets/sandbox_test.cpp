// The sandbox where it must not fail in silence: what it keeps from the machine, and what it finds left behind.
#include <csignal>
#include <ctime>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/sem.h>
#include <unistd.h>

#include "build_paths.h"
#include "tests/support/rows.h"

namespace
{

constexpr const char *kProbe = "/bin/probe";

// A box with the program that makes the calls its arguments name.
struct ProbeBox : Sandbox {
    ProbeBox() { host_file(kProbe, SANDBOX_PROBE); }

    Result probe(const std::string &steps, const RunOptions &options = {})
    {
        Result result = run(words(steps, kProbe), options);
        result.out.erase(0, result.out.find('\n') + 1); // "named ..."
        return result;
    }
};

TEST(Sandbox, ShowsNothingOfTheHost)
{
    ProbeBox box;
    char host[256];
    ASSERT_EQ(gethostname(host, sizeof(host)), 0);
    const Result result = box.probe("id '' sethostname nas-7 semget 0x51", {.leaves = {"semaphore 0x00000051"}});
    EXPECT_EQ(result.out, "pid 2 uid 0 gid 0\nid 0\n"
                          "sethostname 0\nsemget 0\n");
    char now[256];
    ASSERT_EQ(gethostname(now, sizeof(now)), 0);
    EXPECT_STREQ(now, host);
    EXPECT_EQ(semget(0x51, 1, 0), -1); // in the host's namespace
    for (const char *folder : {"/home", "/opt", "/var/lib/dpkg", "/usr/share", "/boot", "/sys/class"})
        EXPECT_FALSE(box.exists(folder)) << folder;
    EXPECT_EQ(box.run({"/bin/sh", "-c", "for f in /dev/*; do [ -b $f -o -c $f ] && echo $f; done; exit 0"}).out,
              "/dev/null\n/dev/random\n/dev/tty\n/dev/urandom\n/dev/zero\n");
    for (const char *path :
         {"/.box/proc/self/oom_score_adj", "/lib/x86_64-linux-gnu/libc.so.6", "/usr/libexec/norv/norv"})
        EXPECT_EQ(box.run({"/bin/sh", "-c", std::string("echo 1 > ") + path}).exit_status, 2) << path;
}

// What nobody foresaw is told, and an order that was not is none.
TEST(Sandbox, UnexpectedCallsAreTold)
{
    Sandbox box;
    box.program("/sbin/mdadm", {{.args = "-S *", .exit_status = 4}});
    box.program("/bin/dd"); // any arguments
    const Result result = box.run({"/bin/sh", "-c", "mdadm -S /dev/md0; mdadm -X 'a b' ''; dd of=/dev/sda"});
    EXPECT_EQ(box.unexpected_calls(), "/sbin/mdadm -X 'a b' ''\n");
    EXPECT_TRUE(result.record.in_order({"run /sbin/mdadm -S *", "run /bin/dd*"}));
    EXPECT_FALSE(result.record.in_order({"run /bin/dd*", "run /sbin/mdadm -S*"}));
    EXPECT_FALSE(box.wait_for("no such line", 0.01));
    EXPECT_NONFATAL_FAILURE(box.call({.call = "opne"}), "no call named opne");
}

TEST(Sandbox, CallsThatReachTheMachineAreOnlyTold)
{
    ProbeBox box;
    const time_t before = time(nullptr);
    const Result result = box.probe("settimeofday 946684800 reboot '' swapon /dev/md1 open /etc/group module speed=1");
    EXPECT_EQ(result.out, "settimeofday 0\nreboot 0\nswapon 0\nopen 0\nmodule 0\n");
    EXPECT_EQ(result.record.text(), "settimeofday 946684800.000000\nreboot 0x1234567\nswapon /dev/md1 0x0\n"
                                    "finit_module /etc/group speed=1\n");
    EXPECT_GE(time(nullptr), before); // not 2000
}

TEST(Sandbox, LeftoversFailTheTest)
{
    const struct {
        const char *steps, *left, *declared;
    } kCases[] = {
        {"daemon 30", "  process probe\n", "process probe"},
        {"mount /mnt", "  mount /mnt\n", "mount /mnt"},
        {"semget 0x9335808", "  semaphore 0x09335808\n", "semaphore 0x*"},
        {"create /etc/norvinfo.conf.Ab3", "  /etc/norvinfo.conf.Ab3\n", "/etc/norvinfo.conf.*"},
        {"flock /tmp/l daemon 30", "  lock /tmp/l\n  process probe\n  /tmp/l\n", "*"},
    };
    for (const auto &[steps, left, declared] : kCases) {
        for (const bool is_declared : {false, true}) {
            ProbeBox box;
            box.directory("/mnt");
            testing::TestPartResultArray faults;
            {
                testing::ScopedFakeTestPartResultReporter reporter(
                    testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &faults);
                box.probe(steps, {.leaves = lines(is_declared ? declared : "")});
            }
            ASSERT_EQ(faults.size(), is_declared ? 0 : 1) << left;
            for (int i = 0; i < faults.size(); i++)
                EXPECT_TRUE(testing::IsSubstring("", "", left, faults.GetTestPartResult(i).message()));
            // What was there before is not blamed on the next program.
            box.probe("id ''");
        }
    }
}

TEST(Sandbox, SanitizerReportsFailTheTest)
{
    Sandbox box;
    const char *line = "exec > /dev/null; while read l; do echo $l; done < /etc/group > /.box/sanitizer.5";
    EXPECT_NONFATAL_FAILURE(box.run({"/bin/sh", "-c", line}), "root:x:0:");
    EXPECT_EQ(box.run({"/bin/sh", "-c", ":"}).exit_status, 0); // told once
}

TEST(Sandbox, TimeLimitKillsAndFails)
{
    ProbeBox box;
    Result result;
    EXPECT_NONFATAL_FAILURE(result = box.probe("sleep 77", {.seconds = 0.2}), "sleep 77");
    EXPECT_TRUE(result.timed_out);
    EXPECT_EQ(result.signal, SIGKILL);
}

} // namespace

// The sandbox itself: what it isolates, records, answers and finds left behind.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/sem.h>
#include <unistd.h>

#include "build_paths.h"
#include "platform/board/board.h"
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

double seconds_since(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

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
    EXPECT_EQ(box.list("/usr/bin"), std::vector<std::string>());

    EXPECT_EQ(box.run({"/bin/sh", "-c", "for f in /dev/*; do [ -b $f -o -c $f ] && echo $f; done; exit 0"}).out,
              "/dev/null\n/dev/random\n/dev/tty\n/dev/urandom\n/dev/zero\n");

    // What a shell can and cannot reach.
    struct {
        const char *line;
        int status;
    } const kLines[] = {
        {"read line < /proc/self/maps", 0},
        {"echo 1 > /proc/sys/kernel/norv_swap_flag", 0},
        {"echo 1 > /.box/proc/self/oom_score_adj", 2},
        {"echo 1 > /lib/x86_64-linux-gnu/libc.so.6", 2},
        {"echo 1 > /usr/libexec/norv/norv", 2},
        {"while read name rest; do echo $name; done < /proc/net/dev", 0},
    };
    for (const auto &[line, status] : kLines) {
        const Result shell = box.run({"/bin/sh", "-c", line}, {.leaves = {"/proc/sys/kernel/norv_swap_flag"}});
        EXPECT_EQ(shell.exit_status, status) << line << "\n" << shell.err;
        EXPECT_EQ(shell.out.find("eth"), std::string::npos) << shell.out;
    }
}

TEST(Sandbox, FilesAreSeededAndInspected)
{
    Sandbox box;
    box.file("/etc/deep/er/a.conf", "a=1\n", 0640);
    box.directory("/mnt", 0700);
    box.symlink("/etc/link", "/etc/deep/er/a.conf");
    box.symlink("/etc/outward", "../../../../etc/deep");
    EXPECT_EQ(box.read_file("/etc/link"), "a=1\n");
    EXPECT_EQ(box.read_file("/etc/outward/er/a.conf"), "a=1\n"); // never the host's /etc
    EXPECT_EQ(box.mode("/etc/deep/er/a.conf"), 0640U);
    EXPECT_EQ(box.mode("/mnt"), 0700U);
    box.remove("/etc/deep");
    EXPECT_FALSE(box.exists("/etc/deep"));
    EXPECT_TRUE(box.exists("/etc/link"));
    EXPECT_NONFATAL_FAILURE(static_cast<void>(box.read_file("/etc/link")), "No such file");

    box.file("/etc/same", "x");
    box.file("/etc/other", "x");
    box.file("/etc/gone", "x");
    const Result result =
        box.run({"/bin/sh", "-c", "echo y > /etc/other; : > /tmp/new; exec > /dev/null"}, {.leaves = {"/tmp/n*"}});
    EXPECT_EQ(result.files_changed, (std::vector<std::string>{"~/etc/other", "+/tmp/new"}));
}

TEST(Sandbox, RolesAndOptions)
{
    ProbeBox box;
    EXPECT_EQ(box.run({"norvhwctrl", "-fly"}).exit_status, 1);
    EXPECT_EQ(box.run({"/usr/sbin/norvhwctrl", "-fly"}).exit_status, 1);
    EXPECT_NONFATAL_FAILURE(static_cast<void>(box.start({"norvfly"})), "no role is named norvfly");

    EXPECT_EQ(box.run({kProbe}, {.argv0 = "name/with/slash"}).out, "named name/with/slash\n");
    EXPECT_EQ(box.probe("env PATH env A read 5", {.env = {"A=b"}, .input = "hello"}).out,
              "/sbin:/bin:/usr/sbin:/usr/bin\nenv 0\nb\nenv 0\nhello\nread 5\n");
    EXPECT_EQ(box.probe("env PATH", {.empty_env = true}).out, "(none)\nenv 0\n");
    EXPECT_EQ(box.probe("read 5 exit 7", {.closed = {0}}).out, "read EBADF\n");
    EXPECT_EQ(box.probe("exit 7").exit_status, 7);
    EXPECT_EQ(box.probe("kill 9").signal, 9);
    EXPECT_EQ(box.run({"/bin/sh", "-c", "ulimit -n; cd ..; pwd"}, {.cwd = "/etc", .limits = {{RLIMIT_NOFILE, 24}}}).out,
              "24\n/\n");
}

TEST(Sandbox, ProgramsAnswerFromTheirTable)
{
    Sandbox box;
    box.program("/sbin/mdadm", {{.args = "-S /dev/md0", .output = "stopped\n", .times = 1},
                                {.args = "-S *", .error = "no such array\n", .exit_status = 4},
                                {.args = "--kill", .signal = SIGKILL}});
    box.program("/bin/dd"); // any arguments
    box.program("/usr/bin/tee", {{.output = "taken", .reads_input = true}});
    box.program("/sbin/sfdisk",
                {{.effect = [&](const ProgramCall &call) { box.file("/dev/sda1", call.args.back()); }}});
    const Result result = box.run(
        {"/bin/sh", "-c",
         "mdadm -S /dev/md0; mdadm -S /dev/md0; echo $?; mdadm -X 'a b' ''; echo $?; dd if=/dev/zero of=/dev/sda;"
         "echo text | A=b /usr/bin/tee; cd /etc; sfdisk -1 3; [ -e /dev/sda1 ] && echo made; exec mdadm --kill"},
        {.leaves = {"/dev/sda1"}});
    EXPECT_EQ(result.out, "stopped\n4\n0\ntakenmade\n");
    EXPECT_EQ(result.err, "no such array\n");
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_TRUE(result.record.in_order({"run /sbin/mdadm -S /dev/md0", "run /sbin/mdadm -S /dev/md0",
                                        "run /sbin/mdadm -X 'a b' ''", "run /bin/dd if=/dev/zero of=/dev/sda",
                                        "run /usr/bin/tee", "run /sbin/sfdisk -1 3", "run /sbin/mdadm --kill"}));
    EXPECT_FALSE(result.record.in_order({"run /bin/dd*", "run /sbin/mdadm -S*"}));
    EXPECT_EQ(result.record.count("run /sbin/mdadm*"), 4);
    EXPECT_EQ(box.unexpected_calls(), "/sbin/mdadm -X 'a b' ''\n");
    EXPECT_EQ(box.read_file("/dev/sda1"), "3");
    const ProgramCall tee = box.calls("/usr/bin/tee").at(0);
    EXPECT_EQ(tee.input, "text\n");
    EXPECT_NE(std::find(tee.env.begin(), tee.env.end(), "A=b"), tee.env.end());
    EXPECT_EQ(box.calls("/sbin/sfdisk").at(0).cwd, "/etc");
}

TEST(Sandbox, ChildrenWithoutEnvironmentOrDescriptorsAreSeen)
{
    ProbeBox box;
    const Result result = box.probe("clone /bin/probe clone /bin/none log after");
    EXPECT_EQ(result.out, "named /bin/probe\nsleep 0\nclone 0\nclone 2\nlog 0\n");
    EXPECT_EQ(result.record.text(), "sleep 0\nexecve /bin/none = ENOENT\nlog warning after\n");
}

TEST(Sandbox, LogLinesKeepPriorityAndOrder)
{
    ProbeBox box;
    box.program("/bin/mark");
    std::string steps, expected;
    for (int i = 0; i < 40; i++) {
        const std::string number = std::to_string(i);
        steps += " log 'line " + number + "\n' system 'mark " + number + "' usleep " + number;
        expected += "log warning line " + number + "\\n\nrun /bin/sh -c 'mark " + number + "'\nrun /bin/mark " +
                    number + "\nusleep " + number + "\n";
    }
    const Result result = box.probe(steps);
    EXPECT_EQ(result.record.text(), expected);
    ASSERT_EQ(result.log.size(), 40U);
    EXPECT_EQ(result.log[7].text, "line 7\n");
    EXPECT_EQ(result.log[7].ident, "probe");
    EXPECT_EQ(result.log[7].priority, 4);
}

TEST(Sandbox, CallsThatReachTheMachineAreOnlyTold)
{
    ProbeBox box;
    const time_t before = time(nullptr);
    const Result result = box.probe("settimeofday 946684800 reboot '' swapon /dev/md1 open /etc/group module speed=1");
    EXPECT_EQ(result.out, "settimeofday 0\nreboot 0\nswapon 0\nopen 0\nmodule 0\n");
    EXPECT_EQ(result.record.text(), "settimeofday 946684800.000000\nreboot 0x1234567\nswapon /dev/md1 0x0\n"
                                    "finit_module /etc/group speed=1\n");
    EXPECT_LT(time(nullptr) - before, 60);
}

TEST(Sandbox, CallsFailByTable)
{
    ProbeBox box;
    box.call({.call = "open", .args = "/etc/pass*", .error = EIO, .skip = 1, .times = 2});
    box.call({.call = "settimeofday", .error = EPERM});
    box.call({.call = "fsync", .real = true});
    box.call({.call = "sleep", .result = 3});
    EXPECT_NONFATAL_FAILURE(box.call({.call = "opne"}), "no call named opne");
    const Result result = box.probe("open /etc/passwd open /etc/passwd open /etc/group open /etc/passwd open "
                                    "/etc/passwd fsync '' settimeofday 5 sleep 100");
    EXPECT_EQ(result.out, "open 0\nopen EIO\nopen 0\nopen EIO\nopen 0\nfsync 0\nsettimeofday EPERM\nsleep 3\n");
    EXPECT_EQ(result.record.text(), "open /etc/passwd 0x80002 = EIO\nopen /etc/passwd 0x80002 = EIO\n"
                                    "fsync /etc/passwd\nsettimeofday 5.000000 = EPERM\nsleep 100\n");
}

TEST(Sandbox, RequestsOnDevices)
{
    ProbeBox box;
    box.device("/dev/sda", 3ULL << 40);
    box.file("/dev/md0", "");
    box.request({.device = "/dev/md*", .request = 0x80040961, .bytes = {"\2\0\0\0", 4}, .times = 1});
    box.request({.device = "/dev/md*", .request = 0x80040961, .error = ENODEV});
    box.request({.device = "/dev/md*", .request = 0x40080999, .bytes = {"\7\0", 2}, .reads = 2});
    const Result result =
        box.probe("open /dev/sda ioctl 0x80081272 ioctl 0x1268 bad-ioctl 0x1268 ioctl 0x80040961 open /dev/md0 ioctl "
                  "0x80040961 ioctl 0x80040961 ioctl 0x40080999 bad-ioctl 0x40080999 open /dev/null ioctl 0x1268");
    EXPECT_EQ(result.out, "open 0\nioctl 3298534883328\nioctl 512\nbad-ioctl EFAULT\nioctl ENOTTY\nopen 0\nioctl 2\n"
                          "ioctl ENODEV\nioctl 7\nbad-ioctl EFAULT\nopen 0\nioctl ENOTTY\n");
    EXPECT_EQ(result.record.text(), "ioctl /dev/sda BLKGETSIZE64\nioctl /dev/sda BLKSSZGET\nioctl /dev/sda BLKSSZGET\n"
                                    "ioctl /dev/sda 0x80040961\nioctl /dev/md0 0x80040961\n"
                                    "ioctl /dev/md0 0x80040961 = ENODEV\nioctl /dev/md0 0x40080999 0000\n"
                                    "ioctl /dev/md0 0x40080999 = EFAULT\n");
}

TEST(Sandbox, BoardAnswersAndRaisesEvents)
{
    ProbeBox box;
    const Result result = box.probe("open /dev/norvbios ioctl 0xc0044b0d ioctl 0x5401 poll 0");
    EXPECT_EQ(result.out, "open 0\nioctl 0\nioctl ENOTTY\npoll 0\n");
    EXPECT_EQ(result.record.count("board *"), 2) << result.record.text();

    box.board([](board &board) { EXPECT_EQ(board_event_raise(&board, 0x21), 0); });
    EXPECT_EQ(box.probe("open /dev/norvbios poll 0 poll 0 ioctl 0xc0044b02 poll 0").out,
              "open 0\npoll 1\npoll 1\nioctl 33\npoll 0\n");

    Process waiting = box.start({kProbe, "open", "/dev/norvbios", "sleep", "0", "poll", "20000"});
    ASSERT_TRUE(box.wait_for("poll 20000"));
    box.board([](board &board) { EXPECT_EQ(board_event_raise(&board, 0x22), 0); });
    EXPECT_EQ(waiting.wait().out, "named /bin/probe\nopen 0\nsleep 0\npoll 1\n");

    box.board_remove();
    EXPECT_EQ(box.probe("open /dev/norvbios").out, "open ENOENT\n");
}

TEST(Sandbox, MountsShowVolumes)
{
    ProbeBox box;
    box.directory("/_disk");
    box.file(box.volume("/dev/md0") + "/.noroot", "");
    const Result result = box.run(
        {"/bin/sh", "-c",
         "probe mount /_disk; [ -f /_disk/.noroot ] && echo there; : > /_disk/new; while read line; do echo $line;"
         "done < /proc/mounts; probe umount /_disk umount /_disk mount /none; [ -e /_disk/new ] || echo gone"},
        {.leaves = {"/.box/volumes/dev:md0/new"}});
    EXPECT_EQ(result.out,
              "named probe\nmount 0\nthere\nbox / tmpfs rw,relatime 0 0\n/dev/md0 /_disk ext4 rw,relatime 0 0\n"
              "named probe\numount 0\numount EINVAL\nmount ENOENT\ngone\n");
    EXPECT_EQ(result.record.text("*mount*0x*"),
              "mount /dev/md0 /_disk ext4 0x400\numount2 /_disk 0x0\n"
              "umount2 /_disk 0x0 = EINVAL\nmount /dev/md0 /none ext4 0x400 = ENOENT\n");
    EXPECT_EQ(box.read_file("/proc/mounts"), "box / tmpfs rw,relatime 0 0\n");
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

TEST(Sandbox, SleepsAreCompressed)
{
    ProbeBox box;
    box.compress_sleeps(10000);
    const auto begin = std::chrono::steady_clock::now();
    const Result result =
        box.probe("sleep 600 usleep 5000000 nanosleep 600 select 600 poll 600000 clock 600 alarm 600");
    EXPECT_LT(seconds_since(begin), 10);
    EXPECT_EQ(result.out, "sleep 0\nusleep 0\nnanosleep 0\nselect 0\npoll 0\nclock 60\nalarm 14\n");
    EXPECT_EQ(result.record.text(), "sleep 600\nusleep 5000000\nnanosleep 600.000000005\nselect 600.000000\n"
                                    "poll 600000\nsleep 600\nalarm 600\n");
}

TEST(Sandbox, SleepsTakeTheirTimeUnlessCompressed)
{
    ProbeBox box;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(box.probe("usleep 120000 select 0 clock 1").out.substr(0, 9), "usleep 0\n");
    EXPECT_GE(seconds_since(begin), 1.1);
}

TEST(Sandbox, ProgramsRunAtTheSameTime)
{
    ProbeBox box;
    box.program("/usr/sbin/inetd", {{.stays = true}});
    Process reader = box.start({kProbe, "read", "3", "read", "3"}, {.input = "one", .input_open = true});
    Process daemon = box.start({"/usr/sbin/inetd", "-i"});
    ASSERT_TRUE(box.wait_for("run /usr/sbin/inetd -i"));
    EXPECT_TRUE(reader.running());
    EXPECT_EQ(box.processes().size(), 0U);
    reader.send("two");
    EXPECT_EQ(reader.wait().out, "named /bin/probe\none\nread 3\ntwo\nread 3\n");
    EXPECT_TRUE(daemon.running());
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait().signal, SIGTERM);

    // A daemon lives on after the program that made it.
    box.probe("daemon 30", {.leaves = {"process probe"}});
    ASSERT_EQ(box.processes().size(), 1U);
    const pid_t pid = box.processes()[0].pid;
    EXPECT_FALSE(box.wait_for_end(pid, 0.01));
    box.signal(pid, SIGKILL);
    int status = 0;
    EXPECT_TRUE(box.wait_for_end(pid, 10, &status));
    EXPECT_EQ(status, SIGKILL);
    EXPECT_FALSE(box.wait_for("no such line", 0.01));
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

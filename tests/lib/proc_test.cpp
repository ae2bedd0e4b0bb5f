// Starting programs and signalling daemons.
#include "lib/proc.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include "tests/support/in_child.h"
#include "tests/support/outcome.h"
#include "tests/support/process_state.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/watched_calls.h"

namespace
{

class Proc : public TidyTest
{
};

struct SigchldCase {
    void (*handler)(int);
    int flags;
};
const SigchldCase kSigchldCases[] = {
    {SIG_DFL, 0}, {SIG_IGN, 0}, {SIG_DFL, SA_NOCLDWAIT}, {child_reap, 0}, {child_reap, SA_RESTART | SA_NOCLDWAIT},
};

TEST_F(Proc, ExecResults)
{
    static constexpr struct {
        const char *path, *script;
        unsigned flags;
        int result, code;
    } kCases[] = {
        {"/bin/sh", "exit 255", 0, 255, 0},
        {"/no/such", "", kExecDetached, 255, 0},
        {"/bin/sh", "kill -9 $$", kExecDetached, -1, 0x2a00},
        {"/bin/sh", "exit 7", kExecRawStatus, 7 << 8, 0},
        {"/bin/sh", "kill -9 $$", kExecRawStatus, 9, 0},
        {"/bin/sh", "exit 7", kForkTwice, 0, 0},
    };
    char name[] = "sh", option[] = "-c", script[] = "test -z \"$(readlink /proc/$$/fd/[012] | grep -v /dev/null)\"",
         die[] = "kill -9 $$";
    char *const quiet[] = {name, option, script, nullptr}, *const killed[] = {name, option, die, nullptr};
    for (const SigchldCase &sigchld : kSigchldCases) {
        const SigchldAction action(sigchld.handler, sigchld.flags);
        for (const auto &row : kCases)
            EXPECT_EQ(outcome(NLIBCExecl, row.path, row.flags, "-c", row.script, nullptr),
                      (Outcome{row.result, row.code}))
                << row.script;
        EXPECT_EQ(NLIBCExecv("/bin/sh", quiet, 1), 0);
        EXPECT_EQ(outcome(NLIBCExecv, "/bin/sh", killed, 1), (Outcome{-1, 0x2a00}));
        EXPECT_EQ(NLIBCExecv("/bin/sh", killed, 0), 0);
    }
    EXPECT_EQ(NLIBCExec("/bin/sh", "-c", "test $0$1 = ab; exit $?", "a", "b"), 0);
    // argv[0] is the path, and all of a long list arrives.
    EXPECT_EQ(
        NLIBCExecl("/bin/sh", 0, "-c", "exit $#", "0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "", "11", nullptr),
        11);
}

TEST_F(Proc, OtherChildrenAreLeftToTheirWaiters)
{
    const pid_t other = fork();
    if (other == 0)
        _exit(5);
    siginfo_t ended;
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(NLIBCExecl("/bin/sh", 0, "-c", "exit 7", nullptr), 7);
    EXPECT_EQ(exit_status(other), 5);
}

// How waiting fails shows in the tests of programs with a pipe.
TEST_F(Proc, StartingFails)
{
    const WatchedCall clone("clone", {.error = EAGAIN}), fork("fork", {.error = EAGAIN});
    EXPECT_EQ(outcome(NLIBCExecl, "/bin/sh", 0U, nullptr), (Outcome{-1, 0x2a00}));
    EXPECT_EQ(outcome(NLIBCExecl, "/bin/sh", unsigned{kForkTwice}, nullptr), (Outcome{-1, 0x2a00}));
}

// What a program finds when it starts, a line each: a shell tells it.
constexpr char kProbe[] =
    "text=$(for n in 0 1 2 57; do /usr/bin/readlink /proc/$$/fd/$n; done; /usr/bin/readlink /proc/$$/cwd;"
    "/usr/bin/tr '\\0' ' ' </proc/$$/environ; echo; /bin/grep SigBlk /proc/$$/status;"
    "set -- $(/bin/cat /proc/$$/stat); echo nice ${19}; [ $6 != $$ ] || echo leader);"
    "echo \"$text\" >\"$1.tmp\"; /bin/mv \"$1.tmp\" \"$1\"";

// Two ways to a program under the same flags.
int start_by_execl(unsigned flags, const char *out)
{
    return NLIBCExecl("/bin/sh", flags, "-c", kProbe, "sh", out, nullptr);
}
int start_by_fork(unsigned flags, const char *out)
{
    const pid_t pid = NLIBCFork(flags);
    if (pid == 0) {
        execl("/bin/sh", "/bin/sh", "-c", kProbe, "sh", out, nullptr);
        _exit(255);
    }
    if ((flags & kForkTwice) != 0)
        return pid == 1 ? 0 : -1;
    return exit_status(pid);
}

TEST_F(Proc, FlagsShowInTheProgram)
{
    static constexpr unsigned kFlagSets[] = {0,    0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x80, 0xff & ~kForkTwice,
                                             0x40, 0xff};
    const ScratchDir temp;
    temp.write("stream", "");
    const std::string out = temp.path("probe"), stream = temp.path("stream"), cwd = temp.path();
    const bool priority_may_rise = in_child([] {
                                       setpriority(PRIO_PROCESS, 0, 5);
                                       return setpriority(PRIO_PROCESS, 0, 0);
                                   }) == 0;
    for (const auto start : {start_by_execl, start_by_fork})
        for (const unsigned flags : kFlagSets) {
            std::filesystem::remove(out);
            const auto prepare_and_start = [&] {
                clearenv();
                setenv("A", "1", 1);
                setenv("PATH", "/bin", 1);
                sigset_t usr2;
                sigemptyset(&usr2);
                sigaddset(&usr2, SIGUSR2);
                sigprocmask(SIG_SETMASK, &usr2, nullptr);
                const int file = open(stream.c_str(), O_RDWR);
                for (const int fd : {0, 1, 2, 57})
                    dup2(file, fd);
                setpriority(PRIO_PROCESS, 0, 5);
                if (chdir(cwd.c_str()) != 0)
                    return 99;
                return start(flags, out.c_str());
            };
            ASSERT_EQ(in_child(prepare_and_start), 0) << flags;
            for (int tries = 0; tries < 1000 && !std::filesystem::exists(out); tries++)
                usleep(10'000); // with two forks nobody waits for the program
            const auto has = [flags](unsigned flag) { return (flags & flag) != 0; };
            std::string expected;
            for (int n = 0; n < 3; n++)
                expected += (has(kForkNullStreams) ? "/dev/null" : stream) + "\n";
            expected += has(kForkCloseAll) ? "" : stream + "\n";
            expected += (has(kForkRootDir) ? "/" : cwd) + "\n" + (has(kForkCleanEnv) ? "" : "A=1 ") + "PATH=/bin \n";
            expected += "SigBlk:\t0000000000000800\n";
            expected += has(kForkPriority) && priority_may_rise ? "nice 0\n" : "nice 5\n";
            expected += has(kForkSession) ? "leader\n" : "";
            EXPECT_EQ(temp.read("probe"), expected) << "flags " << flags;
        }
}

TEST_F(Proc, CallerIsUntouched)
{
    const std::string cwd = std::filesystem::current_path();
    setenv("CALLERS", "own", 1);
    errno = EXDEV;
    EXPECT_EQ(NLIBCExecl("/no/such", 0xff & ~kForkTwice, nullptr), 255);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(std::filesystem::current_path(), cwd);
    EXPECT_STREQ(getenv("CALLERS"), "own");
}

// A handler of the caller's must not run in the child on its way to the program.
volatile sig_atomic_t handled = 0;
TEST_F(Proc, HandlersDoNotRunInTheChild)
{
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int) { handled = 1; };
    sigaction(SIGTERM, &action, &before);
    {
        // The signal is sent within the child, where it is blocked, and ends the child once the mask is restored.
        const pid_t self = getpid();
        const WatchedCall closes("close_range", {.times = 0, .before = [self] {
                                                     if (getpid() != self)
                                                         kill(getpid(), SIGTERM);
                                                 }});
        EXPECT_EQ(NLIBCExecl("/bin/true", kForkCloseAll | kExecRawStatus, nullptr), SIGTERM);
    }
    sigaction(SIGTERM, &before, nullptr);
    EXPECT_EQ(handled, 0);
}

TEST_F(Proc, CloseAllWithoutTheKernelsHelp)
{
    // The highest is beyond what a directory read returns at once; the last way is bounded by the limit.
    for (const bool has_proc : {true, false}) {
        const auto fork_and_count = [&] {
            for (int fd = 57; fd < 257; fd++)
                dup2(0, fd);
            const WatchedCall range("close_range", {.error = ENOSYS});
            const WatchedCall proc("open", {.error = ENOENT, .times = has_proc ? 0 : 1});
            const WatchedCall closes("close", {.times = 0});
            const pid_t pid = NLIBCFork(kForkCloseAll);
            if (pid != 0)
                return exit_status(pid);
            if (closes.seen.size() > 300 && has_proc)
                _exit(99); // more than were open
            int open_ones = 0;
            for (int fd = 0; fd < 300; fd++)
                open_ones += fcntl(fd, F_GETFD) >= 0;
            _exit(open_ones - 3);
        };
        EXPECT_EQ(in_child(fork_and_count), 0) << has_proc;
    }
}

TEST_F(Proc, InnerForkFails)
{
    const ScratchDir temp;
    {
        const LogCapture log; // of the middle child
        const WatchedCall inner("fork", {.error = EAGAIN, .skip = 1});
        const WatchedCall end(
            "_exit", {.times = 0, .before = [&] { temp.write("log", std::to_string(end.seen[0]) + ": " + log.text); }});
        EXPECT_EQ(outcome(NLIBCFork, kForkTwice), (Outcome{-1, 0x9700}));
    }
    EXPECT_THAT(temp.read("log"),
                testing::MatchesRegex("255: 3 proc_child.cpp:[0-9]+ Failed to fork\\(\\). errno=.11/Res.*\n"));
}

TEST_F(Proc, ForkFlushes)
{
    // 0x400 flushes standard output and error; without it other streams are flushed as well, and never twice.
    for (const unsigned flags : {0U, unsigned{kForkFlushOutput}}) {
        const ScratchDir temp;
        EXPECT_EQ(in_child([&] {
                      FILE *other = fopen(temp.path("other").c_str(), "we");
                      if (other == nullptr || freopen(temp.path("out").c_str(), "we", stdout) == nullptr)
                          return 9;
                      fputs("text", other);
                      fputs("text", stdout);
                      const pid_t pid = NLIBCFork(flags);
                      if (pid == 0)
                          _exit(temp.read("out") == "text" ? temp.read("other") == "text" : 7);
                      return exit_status(pid);
                  }),
                  flags == 0 ? 1 : 0);
    }
}

TEST_F(Proc, PidFiles)
{
    static constexpr struct {
        const char *text;
        long pid; // 0: refused
    } kCases[] = {
        {"  12 \n", 12}, {"2147483647", 2147483647}, {"", 0}, {"0", 0}, {"-1", 0}, {"4294967297", 0}, {"abc", 0},
    };
    const ScratchDir temp;
    const std::string file = temp.path("pid"), missing = temp.path("missing");
    for (const auto &row : kCases) {
        temp.write("pid", row.text);
        const WatchedCall kills("kill");
        EXPECT_EQ(outcome(NLIBCProcSignalByPidFile, file.c_str(), SIGTERM),
                  row.pid != 0 ? (Outcome{0}) : (Outcome{-1, 0x0900}))
            << row.text;
        EXPECT_EQ(NLIBCProcAliveByPidFile(file.c_str()), row.pid != 0) << row.text;
        EXPECT_EQ(kills.seen, row.pid != 0 ? std::vector<long>(2, row.pid) : std::vector<long>{}) << row.text;
    }
    temp.write("pid", "12");
    const WatchedCall kills("kill", {.error = ESRCH});
    EXPECT_EQ(outcome(NLIBCProcSignalByPidFile, file.c_str(), 0), (Outcome{-1, 0x8100}));
    EXPECT_EQ(outcome(NLIBCProcSignalByPidFile, file.c_str(), -1), (Outcome{-1, 0x0d00}));
    EXPECT_EQ(outcome(NLIBCProcSignalByPidFile, missing.c_str(), 0), (Outcome{-1, 0x0900}));
}

} // namespace

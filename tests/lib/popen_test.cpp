// Programs with a pipe to them.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <iterator>

#include "lib/proc.h"
#include "lib/report.h"
#include "tests/support/in_child.h"
#include "tests/support/outcome.h"
#include "tests/support/process_state.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/watched_calls.h"

namespace
{

class Popen : public TidyTest
{
};

std::string read_to_end(FILE *fp)
{
    std::string text;
    for (int byte; (byte = fgetc(fp)) != EOF;)
        text += static_cast<char>(byte);
    return text;
}

constexpr char kTalk[] = "cat; echo out; echo err >&2"; // standard input is empty, hence cat ends at once

TEST_F(Popen, ModesThatRead)
{
    static constexpr struct {
        const char *mode, *text;
        bool close_on_exec;
    } kCases[] = {
        {"r", "out\n", false},       {"rp", "out\n", false},       {"re", "out\n", true},
        {"rB", "out\nerr\n", false}, {"Br", "out\nerr\n", false},  {"rE", "err\n", false},
        {"eEr", "err\n", true},      {"reBp", "out\nerr\n", true}, {"rr", "out\n", false},
    };
    for (const auto &row : kCases) {
        FILE *stream = NLIBCPopen("/bin/sh", row.mode, "-c", kTalk, nullptr);
        ASSERT_NE(stream, nullptr) << row.mode;
        EXPECT_EQ((fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC) != 0, row.close_on_exec) << row.mode;
        EXPECT_EQ(read_to_end(stream), row.text) << row.mode;
        EXPECT_EQ(NLIBCPclose(stream), 0) << row.mode;
    }
}

TEST_F(Popen, ModesThatWrite)
{
    const ScratchDir temp;
    const std::string script = "cat > " + temp.path("in") +
                               "; streams=$(readlink /proc/$$/fd/[12]); echo \"$streams\" > " + temp.path("streams");
    for (const char *mode : {"w", "we", "pw"}) {
        FILE *stream = NLIBCPopen("/bin/sh", mode, "-c", script.c_str(), nullptr);
        ASSERT_NE(stream, nullptr) << mode;
        fputs(mode, stream);
        EXPECT_EQ(NLIBCPclose(stream), 0) << mode;
        EXPECT_EQ(temp.read("in"), mode);
        EXPECT_EQ(temp.read("streams"), "/dev/null\n/dev/null\n");
    }
}

TEST_F(Popen, ModesThatAreNone)
{
    for (const char *mode : {"", "rw", "wr", "p", "eB", "x", "rx", "R", "r w"})
        EXPECT_EQ(outcome(NLIBCPopen, "/bin/true", mode, nullptr), (Outcome{-1, 0x0d00})) << mode;
    char *const argv[] = {nullptr};
    EXPECT_EQ(NLIBCPopenv(nullptr, "r", argv), nullptr);
    EXPECT_EQ(NLIBCPopenv("/bin/true", nullptr, argv), nullptr);
    EXPECT_EQ(NLIBCPopenv("/bin/true", "r", nullptr), nullptr);
}

TEST_F(Popen, CloseTellsTheRawStatus)
{
    static constexpr struct {
        const char *path, *script;
        int status;
    } kCases[] = {
        {"/bin/sh", "exit 0", 0},
        {"/bin/sh", "exit 3", 3 << 8},
        {"/bin/sh", "kill -9 $$", 9},
        {"/no/such", "", 127 << 8},
    };
    for (const auto &row : kCases) {
        FILE *stream = NLIBCPopen(row.path, "r", "-c", row.script, nullptr);
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(read_to_end(stream), "");
        EXPECT_EQ(NLIBCPclose(stream), row.status) << row.script;
    }
}

TEST_F(Popen, CloseOfOtherStreams)
{
    EXPECT_EQ(outcome(NLIBCPclose, nullptr), (Outcome{-1, 0x0d00}));
    FILE *pipe = NLIBCPopen("/bin/cat", "w", nullptr), *file = fopen("/dev/null", "we");
    ASSERT_NE(pipe, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(outcome(NLIBCPclose, file), (Outcome{-1, 0xe300}));
    EXPECT_NE(fputs("still open", file), EOF);
    EXPECT_EQ(fclose(file), 0);
    EXPECT_EQ(NLIBCPclose(pipe), 0);
}

TEST_F(Popen, WaitingFails)
{
    static constexpr struct {
        int error, times, status, code;
    } kCases[] = {{EINTR, 4, 7 << 8, 0}, {ECHILD, 1, 0, 0}, {EINVAL, 1, -1, 0xe300}};
    for (const auto &row : kCases) {
        FILE *stream = NLIBCPopen("/bin/sh", "r", "-c", "exit 7", nullptr);
        ASSERT_NE(stream, nullptr);
        {
            const WatchedCall wait("waitpid", {.error = row.error, .times = row.times});
            EXPECT_EQ(outcome(NLIBCPclose, stream), (Outcome{row.status, row.code}));
        }
        while (waitpid(-1, nullptr, 0) > 0) // where the wait was not a true one
            continue;
    }
}

TEST_F(Popen, StartingFails)
{
    FILE *first = NLIBCPopen("/bin/sh", "w", "-c", "exit 5", nullptr);
    ASSERT_NE(first, nullptr);
    const auto open_before = open_descriptors();
    static constexpr struct {
        const char *call;
        int error, code;
    } kCases[] = {{"pipe2", EMFILE, 0x8100}, {"fdopen", ENOMEM, 0x0900}, {"clone", EAGAIN, 0x9700}};
    for (const auto &row : kCases) {
        const WatchedCall call(row.call, {.error = row.error});
        EXPECT_EQ(outcome(NLIBCPopen, "/bin/true", "r", nullptr), (Outcome{-1, row.code})) << row.call;
        EXPECT_EQ(open_descriptors(), open_before) << row.call;
    }
    EXPECT_EQ(NLIBCPclose(first), 5 << 8);
}

TEST_F(Popen, AChildGetsNoOtherPipe)
{
    // Without 'e' the end is inherited by programs, but not by those that are started with a pipe of their own: they
    // would keep this one from ending.
    FILE *streams[3];
    std::string script = ":";
    for (FILE *&stream : streams) {
        stream = NLIBCPopen("/bin/sh", "w", "-c", (script + "; cat").c_str(), nullptr);
        ASSERT_NE(stream, nullptr);
        script += "; [ -e /proc/$$/fd/" + std::to_string(fileno(stream)) + " ] && exit 9";
    }
    const std::string own = "[ -e /proc/$$/fd/" + std::to_string(fileno(streams[0])) + " ]";
    EXPECT_EQ(NLIBCExecl("/bin/sh", 0, "-c", own.c_str(), nullptr), 0);
    for (const int middle_first : {1, 0, 2})
        EXPECT_EQ(NLIBCPclose(streams[middle_first]), 0);
    EXPECT_EQ(NLIBCPclose(streams[0]), -1); // NOLINT: the pointer alone is looked at
}

TEST_F(Popen, ClosedStandardStreams)
{
    // The pipe's ends then have numbers from 0 to 2, in every mix, and the same text must come through.
    static constexpr struct {
        const char *mode, *text;
    } kCases[] = {{"r", "out\n"}, {"rB", "out\nerr\n"}, {"rE", "err\n"}};
    const ScratchDir temp;
    const std::string script = "cat > " + temp.path("in") + "; echo out; echo err >&2";
    for (unsigned closed = 1; closed < 8; closed++)
        in_child([&] {
            SCOPED_TRACE(closed);
            for (int stream = 0; stream < 3; stream++)
                if ((closed & 1U << stream) != 0)
                    close(stream);
            for (const auto &row : kCases) {
                FILE *stream = NLIBCPopen("/bin/sh", row.mode, "-c", kTalk, nullptr);
                EXPECT_EQ(read_to_end(stream), row.text) << row.mode;
                EXPECT_EQ(NLIBCPclose(stream), 0) << row.mode;
            }
            FILE *stream = NLIBCPopen("/bin/sh", "w", "-c", script.c_str(), nullptr);
            fputs("text", stream);
            EXPECT_EQ(NLIBCPclose(stream), 0);
            EXPECT_EQ(temp.read("in"), "text");
        });
}

TEST_F(Popen, FcntlFailureIsTold)
{
    // The read end is 0 and the child's end 1, its place already.
    in_child([] {
        close(0);
        close(1);
        const LogCapture log;
        const WatchedCall flags("fcntl", {.error = EBADF, .times = 1});
        FILE *stream = NLIBCPopen("/bin/true", "r", nullptr);
        EXPECT_NE(stream, nullptr);
        EXPECT_TRUE(log.text.starts_with("3 proc_popen.cpp:")) << log.text;
        EXPECT_TRUE(log.text.ends_with(" fcntl failed, Bad file descriptor\n")) << log.text;
    });
}

TEST_F(Popen, ReapingHandlerDoesNotTakeTheStatus)
{
    for (const int flags : {0, SA_NOCLDWAIT}) {
        const SigchldAction action(child_reap, flags);
        for (int run = 0; run < 100; run++) {
            FILE *stream = NLIBCPopen("/bin/sh", "w", "-c", "read line; exit 7", nullptr); // ends when it is closed
            ASSERT_NE(stream, nullptr);
            EXPECT_EQ(NLIBCPclose(stream), 7 << 8);
        }
    }
}

} // namespace

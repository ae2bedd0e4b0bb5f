// Programs with a pipe to them.
#include <cerrno>
#include <csignal>
#include <fcntl.h>

#include "autocleanup/unique.h"
#include "lib/proc.h"
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

// With standard streams closed the pipe's ends have numbers from 0 to 2, in every mix.
TEST_F(Popen, ModesWithAnyStandardStreams)
{
    static constexpr struct {
        const char *mode, *text;
        bool close_on_exec;
    } kCases[] = {{"rp", "out\n", false}, {"re", "out\n", true}, {"Br", "out\nerr\n", false}, {"eEr", "err\n", true}};
    const ScratchDir temp;
    const std::string script = "cat > " + temp.path("in") +
                               "; streams=$(readlink /proc/$$/fd/[12]); echo \"$streams\" > " + temp.path("streams");
    for (unsigned closed = 0; closed < 8; closed++)
        in_child([&] {
            SCOPED_TRACE(closed);
            for (int stream = 0; stream < 3; stream++)
                if ((closed & 1U << stream) != 0)
                    close(stream);
            FILE *stream = nullptr;
            for (const auto &row : kCases) {
                stream = NLIBCPopen("/bin/sh", row.mode, "-c", "cat; echo out; echo err >&2", nullptr);
                EXPECT_EQ((fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC) != 0, row.close_on_exec) << row.mode;
                EXPECT_EQ(read_to_end(stream), row.text) << row.mode; // standard input is empty, hence cat ends
                EXPECT_EQ(NLIBCPclose(stream), 0) << row.mode;
            }
            stream = NLIBCPopen("/bin/sh", "w", "-c", script.c_str(), nullptr);
            fputs("text", stream);
            EXPECT_EQ(NLIBCPclose(stream), 0);
            EXPECT_EQ(temp.read("in"), "text");
            EXPECT_EQ(temp.read("streams"), "/dev/null\n/dev/null\n");
        });
    for (const char *mode : {"", "rw", "p", "rx"})
        EXPECT_EQ(outcome(NLIBCPopen, "/bin/true", mode, nullptr), (Outcome{-1, 0x0d00})) << mode;
}

TEST_F(Popen, CloseTellsTheRawStatus)
{
    static constexpr struct {
        const char *path, *script;
        int error, times; // of waiting
        int status, code;
    } kCases[] = {
        {"/bin/sh", "exit 3", 0, 0, 3 << 8, 0}, {"/bin/sh", "kill -9 $$", 0, 0, 9, 0},
        {"/no/such", "", 0, 0, 127 << 8, 0},    {"/bin/sh", "exit 7", EINTR, 4, 7 << 8, 0},
        {"/bin/sh", "exit 7", ECHILD, 1, 0, 0}, {"/bin/sh", "exit 7", EINVAL, 1, -1, 0xe300},
    };
    for (const auto &row : kCases) {
        FILE *stream = NLIBCPopen(row.path, "r", "-c", row.script, nullptr);
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(read_to_end(stream), "");
        {
            const WatchedCall wait("waitpid", {.error = row.error, .times = row.times});
            EXPECT_EQ(outcome(NLIBCPclose, stream), (Outcome{row.status, row.code})) << row.script;
        }
        while (waitpid(-1, nullptr, 0) > 0) // where the wait was not a true one
            continue;
    }
    const UniqueFile file(fopen("/dev/null", "we")); // no pipe: it stays open
    EXPECT_EQ(outcome(NLIBCPclose, nullptr), (Outcome{-1, 0x0d00}));
    EXPECT_EQ(outcome(NLIBCPclose, file.get()), (Outcome{-1, 0xe300}));
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

TEST_F(Popen, ReapingHandlerDoesNotTakeTheStatus)
{
    const SigchldAction action(child_reap, SA_NOCLDWAIT);
    for (int run = 0; run < 100; run++) {
        FILE *stream = NLIBCPopen("/bin/sh", "w", "-c", "read line; exit 7", nullptr); // ends when it is closed
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(NLIBCPclose(stream), 7 << 8);
    }
}

} // namespace

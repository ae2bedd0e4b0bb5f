// Calls that try again when a signal interrupted them.
#include "lib/io.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "tests/support/outcome.h"
#include "tests/support/process_state.h"
#include "tests/support/watched_calls.h"

namespace
{

class Io : public TidyTest
{
};

TEST_F(Io, ReadAndWriteTryAgain)
{
    static constexpr struct {
        int error, times;
        ssize_t result;
        size_t calls;
    } kCases[] = {
        {EINTR, 0, 3, 1}, {EINTR, 2, 3, 3}, {EINTR, 3, -1, 3}, {EAGAIN, 1, -1, 1}, {EIO, 1, -1, 1},
    };
    for (const auto &row : kCases) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        char got[3] = {};
        {
            const WatchedCall writes("write", {.error = row.error, .times = row.times});
            errno = EXDEV;
            EXPECT_EQ(NLIBCWrite(ends[1], "abc", 3), row.result);
            EXPECT_EQ(errno, EXDEV);
            EXPECT_EQ(writes.seen.size(), row.calls);
        }
        if (row.result < 0) {
            ASSERT_EQ(write(ends[1], "abc", 3), 3);
        }
        {
            const WatchedCall reads("read", {.error = row.error, .times = row.times});
            EXPECT_EQ(NLIBCRead(ends[0], got, 3), row.result);
            EXPECT_EQ(errno, EXDEV);
            EXPECT_EQ(reads.seen.size(), row.calls);
        }
        EXPECT_EQ(memcmp(got, row.result < 0 ? "\0\0\0" : "abc", 3), 0);
        close(ends[0]);
        close(ends[1]);
    }
}

TEST_F(Io, BadArguments)
{
    char byte = 'x';
    const Outcome outcomes[] = {
        outcome(NLIBCRead, -1, &byte, 1UL),     outcome(NLIBCRead, 0, nullptr, 1UL),
        outcome(NLIBCRead, 0, &byte, 0UL),      outcome(NLIBCWrite, -1, &byte, 1UL),
        outcome(NLIBCWrite, 1, nullptr, 1UL),   outcome(NLIBCWrite, 1, &byte, 0UL),
        outcome(NLIBCFgets, nullptr, 1, stdin), outcome(NLIBCFgets, &byte, 0, stdin),
        outcome(NLIBCFgets, &byte, -1, stdin),  outcome(NLIBCFgets, &byte, 1, nullptr),
    };
    for (const Outcome &each : outcomes)
        EXPECT_EQ(each, (Outcome{-1, 0x0d00})) << &each - outcomes;
    EXPECT_EQ(byte, 'x');
}

// A stream whose reads follow a script: text arrives, '!' is EINTR, '#' is EIO.
struct ScriptedStream {
    const char *rest;
    static ssize_t read(void *cookie, char *buf, size_t /*size*/)
    {
        auto *self = static_cast<ScriptedStream *>(cookie);
        const char step = *self->rest;
        if (step == '\0')
            return 0;
        self->rest++;
        if (step == '!' || step == '#') {
            errno = step == '!' ? EINTR : EIO;
            return -1;
        }
        *buf = step;
        return 1;
    }
};

TEST_F(Io, FgetsLosesNothing)
{
    static constexpr struct {
        const char *script;
        int size;
        const char *first, *second; // NULL: none
    } kCases[] = {
        {"ab\ncd", 9, "ab\n", "cd"},   {"abcd", 3, "ab", "cd"},        {"ab", 1, "", ""}, {"", 9, nullptr, nullptr},
        {"!ab\n", 9, "ab\n", nullptr}, {"a!b!\n", 9, "ab\n", nullptr}, // what came before the signal stays
        {"ab!!", 9, "ab", nullptr},    {"a!!!b\n", 9, nullptr, "b\n"}, // the third interruption is a failure
        {"ab\n#", 9, "ab\n", nullptr}, {"ab#cd", 9, nullptr, "cd"},
    };
    for (const auto &row : kCases) {
        ScriptedStream scripted = {row.script};
        FILE *stream = fopencookie(&scripted, "r", {ScriptedStream::read, nullptr, nullptr, nullptr});
        ASSERT_NE(stream, nullptr);
        for (const char *expected : {row.first, row.second}) {
            char line[16] = "?";
            errno = EINTR; // of some call before
            const char *got = NLIBCFgets(line, row.size, stream);
            EXPECT_EQ(errno, EINTR);
            EXPECT_EQ(got != nullptr, expected != nullptr) << row.script;
            if (got != nullptr && expected != nullptr) {
                EXPECT_EQ(got, line);
                EXPECT_STREQ(got, expected) << row.script;
            }
        }
        fclose(stream);
    }
}

} // namespace

// Calls that try again when a signal interrupted them.
#include "lib/io.h"

#include <cerrno>
#include <fcntl.h>

#include "autocleanup/unique.h"
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
    } kCases[] = {{EINTR, 2, 3, 3}, {EINTR, 3, -1, 3}, {EIO, 1, -1, 1}};
    const UniqueFd null(open("/dev/null", O_WRONLY)), zero(open("/dev/zero", O_RDONLY));
    char bytes[3];
    for (const auto &row : kCases)
        for (const bool writes : {true, false}) {
            const WatchedCall watched(writes ? "write" : "read", {.error = row.error, .times = row.times});
            errno = EXDEV;
            EXPECT_EQ(writes ? NLIBCWrite(null.get(), "abc", 3) : NLIBCRead(zero.get(), bytes, 3), row.result);
            EXPECT_EQ(errno, EXDEV);
            EXPECT_EQ(watched.seen.size(), row.calls);
        }
    EXPECT_EQ(outcome(NLIBCRead, 0, bytes, 0UL), (Outcome{-1, 0x0d00}));
    EXPECT_EQ(outcome(NLIBCWrite, 1, nullptr, 1UL), (Outcome{-1, 0x0d00}));
    EXPECT_EQ(outcome(NLIBCFgets, bytes, 0, stdin), (Outcome{-1, 0x0d00}));
}

// A stream whose reads follow a script: text arrives, '!' is EINTR, '#' is EIO.
ssize_t script_read(void *cookie, char *buf, size_t /*size*/)
{
    const char *&rest = *static_cast<const char **>(cookie);
    if (*rest == '\0')
        return 0;
    *buf = *rest++;
    if (*buf != '!' && *buf != '#')
        return 1;
    errno = *buf == '!' ? EINTR : EIO;
    return -1;
}

TEST_F(Io, FgetsLosesNothing)
{
    static constexpr struct {
        const char *script;
        int size;
        const char *first, *second; // NULL: none
    } kCases[] = {
        {"ab\ncd", 9, "ab\n", "cd"},    {"abcd", 3, "ab", "cd"},        {"ab", 1, "", ""},
        {"a!b!\n", 9, "ab\n", nullptr},                                 // what came before the signal stays
        {"ab!!", 9, "ab", nullptr},     {"a!!!b\n", 9, nullptr, "b\n"}, // the third interruption is a failure
        {"ab\n#", 9, "ab\n", nullptr},  {"ab#cd", 9, nullptr, "cd"},
    };
    for (const auto &row : kCases) {
        const char *rest = row.script;
        const UniqueFile stream(fopencookie(&rest, "r", {script_read, nullptr, nullptr, nullptr}));
        for (const char *expected : {row.first, row.second}) {
            char line[16] = "?";
            errno = EINTR; // of some call before
            const char *got = NLIBCFgets(line, row.size, stream.get());
            EXPECT_EQ(errno, EINTR);
            ASSERT_EQ(got, expected == nullptr ? nullptr : line) << row.script;
            EXPECT_STREQ(got, expected) << row.script;
        }
    }
}

} // namespace

#include <cstdio>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "lib/file.h"
#include "lib/report.h"
#include "tests/support/outcome.h"
#include "tests/support/scratch_dir.h"

using namespace std::string_view_literals;

namespace
{

struct Case {
    std::string_view text;
    const char *key;
    int result;
    const char *buf; // "old" before the call
    int code = 0;
    int size = 64;
    int flags = 0;
};

// The syntax of a line, row by row.
constexpr Case kCases[] = {
    {"b=2\na=1\nc=3\n", "a", 2, "1"},
    {"a=1", "a", 2, "1"},
    {"a=1\na=2\n", "a", 2, "1"},
    {"A=1\nab=1\nba=1\nx=a\n", "a", 0, "old", kErrKeyMissing},
    {"", "a", 0, "old", kErrKeyMissing},
    {"#a=1\n;a=2\na=3\n", "a", 2, "3"},
    {"  #a=1\n", "#a", 2, "1"}, // only the first byte makes a comment
    {"#a=1\n", "#a", 0, "old", kErrKeyMissing},
    {"==a=1\n", "a", 2, "1"},
    {"a==b=c\n", "a", 5, "=b=c"},
    {"a=1 # x\n", "a", 6, "1 # x"},
    {" \ta\r =\t x y \r\n", "a", 4, "x y"},
    {"a=\v1\f\n", "a", 4, "\v1\f"}, // no white space here
    {"\"a\"=1\n", "a", 2, "1"},
    {"a=\" x \"\n", "a", 4, " x "},
    {"a='x'\n", "a", 4, "'x'"},
    {"a=\"\"\n", "a", 1, ""},
    {"a=\"\n", "a", 2, "\""},
    {"a=\"b\n", "a", 3, "\"b"},
    {"a=\"\"b\"\"\n", "a", 4, "\"b\""}, // one pair goes
    {"a=\n", "a", 0, "old", kErrKeyMissing},
    {"a= \t\r\n", "a", 0, "old", kErrKeyMissing},
    {"a=\na=1\n", "a", 0, "old", kErrKeyMissing}, // the first line counts, also an empty one
    {"foo\n", "foo", 0, "old", kErrKeyMissing},   // a key without a value
    {"[s]\na=1\n", "a", 2, "1"},
    {"[s]=x\n", "[s]", 2, "x"},
    {"a b=1\n", "a b", 2, "1"},
    {" =1\n", "", 2, "1"},
    {"a=1\0002\n"sv, "a", 2, "1"}, // nothing is seen behind a NUL
    {"\0a=1\na\0=2\na=3\n"sv, "a", 0, "old", kErrKeyMissing},
    {"x\0a=1\na=3\n"sv, "a", 2, "3"},
    {"a=%s\\n\\\n", "a", 6, "%s\\n\\"},
    // room
    {"a=abc\n", "a", 4, "abc", 0, 4},
    {"a=abc\n", "a", -1, "old", kErrBufferTooSmall, 3},
    {"a=abc\n", "a", -1, "old", kErrBufferTooSmall, 0},
    {"a=abc\n", "a", -1, "old", kErrBufferTooSmall, -1},
    {"a=\"\"\n", "a", 1, "", 0, 1},
    {"a=\n", "a", -1, "old", kErrBufferTooSmall, -5}, // less room than nothing takes
    // the last line wins
    {"a=1\nb=2\na=33", "a", 3, "33", 0, 64, 1},
    {"a=1\na=22\n", "a", 2, "1", 0, 64, 2}, // bit 0 alone says so
    {"a=1\na=long\n", "a", -1, "1", kErrBufferTooSmall, 3, 1},
    {"a=long\na=1\n", "a", 2, "1", 0, 3, 1},
    {"a=\na=22\n", "a", 3, "old", 0, 64, 1}, // an empty line ends the copying, not the counting
    {"a=1\na=\na=333\n", "a", 4, "1", 0, 64, 1},
    {"a=1\na=\na=333\n", "a", -1, "1", kErrBufferTooSmall, 3, 1},
    {"a=1\n", "a", -1, "old", kErrBadParameter, 64, -1},
};

TEST(FileGetKeyValue, SyntaxAndRoom)
{
    const ScratchDir dir;
    for (const auto &row : kCases) {
        const std::string path = dir.write("f", row.text);
        char buf[64] = "old";
        EXPECT_EQ(outcome(NLIBCFileGetKeyValue, path.c_str(), row.key, buf, row.size, row.flags),
                  (Outcome{row.result, row.code}))
            << row.text;
        EXPECT_STREQ(buf, row.buf) << row.text;
    }
}

TEST(FileGetKeyValue, Arguments)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "a=abc\n");
    char buf[8];
    const struct {
        const char *file, *key;
        char *buf;
        int size;
        Outcome expected;
    } cases[] = {
        {path.c_str(), "a", nullptr, 0, {4}}, // a question for the room
        {nullptr, "a", buf, 8, {-1, kErrBadParameter}},
        {path.c_str(), nullptr, buf, 8, {-1, kErrBadParameter}},
        {path.c_str(), "a", nullptr, 8, {-1, kErrBadParameter}},
        {path.c_str(), "a", nullptr, -1, {-1, kErrBadParameter}},
        {"", "a", buf, 8, {-1, kErrOpen}},
        {"/nowhere", "a", buf, 8, {-1, kErrOpen}},
        {"/", "a", buf, 8, {0, kErrKeyMissing}}, // a folder opens, and holds no line
    };
    for (const auto &row : cases)
        EXPECT_EQ(outcome(NLIBCFileGetKeyValue, row.file, row.key, row.buf, row.size, 0), row.expected) << &row - cases;
}

// The first 16 KiB are read at once: the key's line ends before, on and behind that edge.
TEST(FileGetKeyValue, LinesAroundTheFirstRead)
{
    const ScratchDir dir;
    for (size_t lead = 16384 - 12; lead <= 16384 + 4; lead++) {
        for (const char *line : {"key=value\n", "key=value", "key=value\nkey=other\n"}) {
            const std::string path = dir.write("f", std::string(lead - 1, 'x') + "\n" + line);
            char buf[16] = "old";
            EXPECT_EQ(NLIBCFileGetKeyValue(path.c_str(), "key", buf, sizeof(buf), 0), 6) << lead << line;
            EXPECT_STREQ(buf, "value") << lead << line;
        }
        EXPECT_EQ(NLIBCFileGetKeyValue(dir.path("f").c_str(), "kex", nullptr, 0, 0), 0);
    }
}

TEST(FileGetKeyValue, LongValue)
{
    const ScratchDir dir;
    const std::string value(1 << 20, 'v'), path = dir.write("f", "a=" + value + "\nb=2\n");
    std::string buf(value.size() + 1, '?');
    EXPECT_EQ(NLIBCFileGetKeyValue(path.c_str(), "a", buf.data(), static_cast<int>(buf.size()), 0), (1 << 20) + 1);
    EXPECT_EQ(buf, value + '\0');
}

// A pipe gives a line in pieces. The reader takes no more than it needs.
TEST(FileGetKeyValue, Pieces)
{
    const ScratchDir dir;
    const std::string path = dir.path("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    FILE *writer = popen(("(printf 'x=1\\nke'; sleep .02; printf y=val; sleep .02; echo ue) >" + path).c_str(), "we");
    char buf[16];
    EXPECT_EQ(NLIBCFileGetKeyValue(path.c_str(), "key", buf, sizeof(buf), 0), 6);
    EXPECT_STREQ(buf, "value");
    EXPECT_EQ(pclose(writer), 0);
}

TEST(FileCheckKeyValue, Answers)
{
    const ScratchDir dir;
    const std::string fits(511, 'v');
    const std::string over(512, 'v');
    const std::string path = dir.write("f", "a=YES\nb=\nc=\"\"\nd\nfits=" + fits + "\nover=" + over + "\n");
    const struct {
        const char *file, *key, *expected;
        int fallback, result;
    } cases[] = {
        {path.c_str(), "a", "yes", 0, 1},
        {path.c_str(), "a", "no", 1, 0},
        {path.c_str(), "b", "", 7, 7}, // empty is missing
        {path.c_str(), "c", "", 0, 1},
        {path.c_str(), "c", "yes", 1, 0},
        {path.c_str(), "d", "yes", 1, 1},
        {path.c_str(), "e", "yes", 1, 1},
        {path.c_str(), "fits", fits.c_str(), 0, 1},
        {path.c_str(), "over", over.c_str(), 1, 0},
        {"/nowhere", "a", "yes", 1, 0}, // the fallback is for keys, not for files
        {nullptr, "a", "yes", 1, 0},
        {path.c_str(), nullptr, "yes", 1, 0},
        {path.c_str(), "a", nullptr, 1, 0},
    };
    for (const auto &row : cases)
        EXPECT_EQ(NLIBCFileCheckKeyValue(row.file, row.key, row.expected, row.fallback), row.result)
            << (row.key == nullptr ? "" : row.key);
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
}

TEST(FileLineKeyMatch, Lines)
{
    static constexpr struct {
        const char *line, *key;
        bool matches;
    } kLines[] = {
        {"a=1\n", "a", true},   {" \"a\" = 1", "a", true}, {"a", "a", true},  {"#a=1", "a", false},
        {";a=1", ";a", false},  {" ;a=1", ";a", true},     {"=a", "a", true}, {"a=b", "a=b", false},
        {"[s]\n", "[s]", true}, {"A=1", "a", false},       {"", "", true},    {"\n", "", true},
        {nullptr, "a", false},  {"a", nullptr, false},
    };
    for (const auto &row : kLines)
        EXPECT_EQ(NLIBCFileLineKeyMatch(row.line, row.key), row.matches) << (row.line == nullptr ? "" : row.line);
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
}

} // namespace

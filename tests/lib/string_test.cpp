#include "lib/string.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "lib/text.h"

namespace
{

// "a|b|": each item with a bar behind it.
std::string items(const NLIBSZLIST *list)
{
    std::string text;
    for (int i = 0; i < list->nItem; i++)
        text.append(list->items[i]).append("|");
    return text;
}

TEST(String, TokAndSep)
{
    struct {
        const char *text, *delims;
        int tokens;
        const char *tok;
        int fields;
        const char *sep;
    } static constexpr kCases[] = {
        {"a,,b", ",", 2, "a|b|", 3, "a||b|"},
        {",a, b ;", ",;", 2, "a| b |", 4, "|a| b ||"},
        {"", ",", 0, "", 1, "|"},
        {",", ",", 0, "", 2, "||"},
        {"ab", "", 1, "ab|", 1, "ab|"},
        {"ab", ",", 1, "ab|", 1, "ab|"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.text);
        UniqueList tokens(NLIBCSzListAlloc(0)), fields(NLIBCSzListAlloc(0));
        EXPECT_EQ(NLIBCStrTok(row.text, row.delims, tokens.address()), row.tokens);
        EXPECT_EQ(items(tokens.get()), row.tok);
        EXPECT_EQ(NLIBCStrSep(row.text, row.delims, fields.address()), row.fields);
        EXPECT_EQ(items(fields.get()), row.sep);
    }
    UniqueList list(NLIBCSzListAlloc(0)); // an item of the list, while the list grows
    NLIBCSzListPush(list.address(), (std::string(440, 'x') + ",yz").c_str());
    EXPECT_EQ(NLIBCStrTok(list.get()->items[0], ",", list.address()), 2);
    EXPECT_STREQ(NLIBCSzListGet(list.get(), 2), "yz");
}

TEST(String, SepPair)
{
    struct {
        const char *line;
        int result;
        const char *pair;
    } static constexpr kCases[] = {
        {"key=value", 0, "key|value|"},
        {" \"a b\"\t= \" c=d \"\r\n", 0, "a b| c=d |"}, // quotes go, what they held stays
        {"a=", 0, "a||"},
        {"a==", 0, "a|=|"},
        {"a", -1, ""},
        {"", -1, ""},
        {" =b", -1, ""},
        {"\"\"=b", -1, ""},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.line);
        UniqueList list(NLIBCSzListAlloc(0));
        NLIBCErrSet(kErrNone, "", 0);
        EXPECT_EQ(NLIBCStrSepPair(row.line, list.address()), row.result);
        EXPECT_EQ(NLIBCErrGet(), row.result == 0 ? kErrNone : kErrBadParameter);
        EXPECT_EQ(items(list.get()), row.pair);
    }
}

TEST(String, TrimSpace)
{
    static constexpr const char *kCases[][2] = {
        {"\t a b \r\n", "a b"}, {"", ""},       {" \t\r\n", ""},    {"\"a\"", "a"},       {"\"\"", ""},
        {"\"", "\""},           {" \" ", "\""}, {"\" \"", " "},     {"\"\"\"", "\""},     {" \" a \" ", " a "},
        {"\"a", "\"a"},         {"a\"", "a\""}, {"\va\f", "\va\f"}, {"\xa0 a", "\xa0 a"},
    };
    for (const auto &[text, trimmed] : kCases) {
        SCOPED_TRACE(text);
        const auto length = static_cast<int>(strlen(trimmed));
        char in_place[16], same[16], apart[16], before[16] = " ";
        ASSERT_TRUE(text_set(in_place, text));
        EXPECT_EQ(NLIBCStrTrimSpace(in_place, nullptr), length);
        EXPECT_STREQ(in_place, trimmed);
        ASSERT_TRUE(text_set(same, text));
        EXPECT_EQ(NLIBCStrTrimSpace(same, same), length);
        EXPECT_STREQ(same, trimmed);
        strncat(before, text, 14); // to a place that overlaps from below
        EXPECT_EQ(NLIBCStrTrimSpace(before + 1, before), length);
        EXPECT_STREQ(before, trimmed);
        ASSERT_TRUE(text_set(same, text));
        EXPECT_EQ(NLIBCStrTrimSpace(same, apart), length);
        EXPECT_STREQ(apart, trimmed);
        EXPECT_STREQ(same, text);
    }
    char text[] = " ab ";
    EXPECT_EQ(NLIBCStrTrimSpace(text, text + 1), -1);
    EXPECT_EQ(NLIBCStrTrimSpace(text, text + 3), -1);
    EXPECT_STREQ(text, " ab ");
}

TEST(String, Snprintf)
{
    struct {
        const char *text;
        size_t size;
        int result, code;
        const char *left, *log; // behind "file:line "
    } static constexpr kCases[] = {
        {"abcd", 5, 4, kErrNone, "abcd", ""},
        {"abcd", 4, -1, kErrTextDoesNotFit, "abc",
         "Failed to do snprintf(). Buffer size is not enough [4]. Necessary [4] [abc]"},
        {"abcd", 1, -1, kErrTextDoesNotFit, "",
         "Failed to do snprintf(). Buffer size is not enough [1]. Necessary [4] []"},
        {"abcd", 0, -1, kErrTextDoesNotFit, "untouched",
         "Failed to do snprintf(). Buffer size is not enough [0]. Necessary [4] []"},
        {nullptr, 8, -1, kErrBadParameter, "untouched", "Invaild Argument (format)=[0]\n"},
        {"abcd", 8, -1, kErrBadParameter, nullptr, "Invaild Argument (buf)=[0]\n"},
    };
    openlog("test", LOG_PERROR, LOG_USER); // a copy of each log line on standard error
    for (const auto &row : kCases) {
        NLIBCErrSet(kErrNone, "", 0);
        char room[16] = "untouched";
        char *const buf = row.left == nullptr ? nullptr : room;
        testing::internal::CaptureStderr();
        errno = EXDEV;
        const int result = row.text == nullptr ? NLIBCStrSnprintf(buf, row.size, nullptr)
                                               : NLIBCStrSnprintf(buf, row.size, "%s%s", "ab", row.text + 2);
        EXPECT_EQ(errno, EXDEV);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(NLIBCErrGet(), row.code);
        EXPECT_STREQ(buf, row.left);
        EXPECT_EQ(log.starts_with("test: string_snprintf.cpp:"), *row.log != '\0') << log;
        EXPECT_NE(log.find(row.log), std::string::npos) << log;
    }
    openlog(nullptr, 0, LOG_USER);
    closelog();
    char buf[8];
    EXPECT_EQ(NLIBCStrSnprintf(buf, sizeof buf, "%lc", static_cast<wint_t>(0x7fffffff)), -1);
    EXPECT_EQ(NLIBCErrGet(), kErrSystemCall);
}

TEST(String, Cat)
{
    struct {
        int first, second, bytes, grown; // lengths; the buffer's bytes after each
    } static constexpr kCases[] = {
        {1022, 1, 1024, 1024},    {1023, 0, 1024, 1024},    {1023, 1, 1024, 2048},    {1024, 1, 1025, 2049},
        {3000, 1024, 3001, 4025}, {3000, 1025, 3001, 4026}, {1000, 5000, 1024, 6001},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(testing::Message() << row.first << " + " << row.second);
        const std::string first(static_cast<size_t>(row.first), 'a'), second(static_cast<size_t>(row.second), 'b');
        UniqueText text;
        int bytes = 77;
        EXPECT_EQ(NLIBCStrCat(text.address(), &bytes, first.c_str()), 0);
        EXPECT_EQ(bytes, row.bytes);
        for (int i = row.first; i < bytes; i++)
            ASSERT_EQ(text.get()[i], '\0');
        EXPECT_EQ(NLIBCStrCat(text.address(), &bytes, second.c_str()), 0);
        EXPECT_EQ(bytes, row.grown);
        EXPECT_EQ(text.get(), first + second);
    }
    UniqueText text;
    int bytes = 0;
    EXPECT_EQ(NLIBCStrCat(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(NLIBCStrCat(text.address(), &bytes, ""), 0);
    EXPECT_EQ(text.get(), nullptr);
    EXPECT_EQ(NLIBCStrCat(nullptr, &bytes, "a"), -1);
    EXPECT_EQ(NLIBCStrCat(text.address(), nullptr, "a"), -1);
    std::string doubled = "ab"; // its own end and its own whole, within the room and growing
    NLIBCStrCat(text.address(), &bytes, "ab");
    for (int i = 0; i < 12; i++) {
        EXPECT_EQ(NLIBCStrCat(text.address(), &bytes, text.get()), 0);
        EXPECT_EQ(NLIBCStrCat(text.address(), &bytes, text.get() + strlen(text.get()) - 1), 0);
        doubled += doubled;
        doubled += 'b';
        EXPECT_EQ(text.get(), doubled);
    }
}

TEST(String, Replace)
{
    struct {
        const char *text, *from, *to;
        int size, result;
        const char *left;
    } static constexpr kCases[] = {
        {"a-b-c", "-", "+", 16, 1, "a+b-c"},
        {"a-b-c", "-b", "", 16, 1, "a-c"},
        {"abc", "abc", "longer", 7, 1, "longer"},
        {"abc", "abc", "longer", 6, -1, "abc"},
        {"abc", "b", "xyz", 6, 1, "axyzc"},
        {"abc", "x", "y", 0, 0, "abc"},
        {"abc", "b", "", 0, -1, "abc"},
        {"abc", "b", "", -1, -1, "abc"},
        {"", "", "x", 2, 1, "x"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.text);
        char in_place[16], dst[16] = "untouched", apart[16];
        ASSERT_TRUE(text_set(in_place, row.text));
        EXPECT_EQ(NLIBCStrReplace(in_place, row.from, row.to, nullptr, row.size), row.result);
        EXPECT_STREQ(in_place, row.left);
        EXPECT_EQ(NLIBCErrGet() == kErrBufferTooSmall, row.result == -1);
        NLIBCErrSet(kErrNone, "", 0);
        ASSERT_TRUE(text_set(apart, row.text));
        EXPECT_EQ(NLIBCStrReplace(apart, row.from, row.to, dst, row.size), row.result);
        EXPECT_STREQ(dst, row.result == 1 ? row.left : "untouched");
        EXPECT_STREQ(apart, row.text);
        NLIBCErrSet(kErrNone, "", 0);
    }
}

TEST(String, BadArguments)
{
    UniqueList list(NLIBCSzListAlloc(0));
    PNLIBSZLIST no_list = nullptr;
    char text[] = "a=b", buf[4];
    const int results[] = {
        // clang-format off
        NLIBCStrTok(nullptr, ",", list.address()),       NLIBCStrTok(text, nullptr, list.address()),
        NLIBCStrTok(text, ",", nullptr),                 NLIBCStrSep(text, ",", &no_list),
        NLIBCStrSepPair(nullptr, list.address()),        NLIBCStrSepPair(text, nullptr),
        NLIBCStrSepPair(text, &no_list),                 NLIBCStrTrimSpace(nullptr, nullptr),
        NLIBCStrReplace(nullptr, "a", "b", nullptr, 4),  NLIBCStrReplace(text, nullptr, "b", buf, 4),
        NLIBCStrReplace(text, "a", nullptr, nullptr, 4),
        // clang-format on
    };
    for (size_t i = 0; i < std::size(results); i++)
        EXPECT_EQ(results[i], -1) << i;
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
    EXPECT_EQ(list.get()->nItem, 0);
}

} // namespace

#include "lib/string.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <syslog.h>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "lib/text.h"
#include "tests/support/outcome.h"

namespace
{

TEST(String, TokTakesAnItemOfTheListThatGrows)
{
    UniqueList list(NLIBCSzListAlloc(0));
    NLIBCSzListPush(list.address(), (std::string(440, 'x') + ",yz").c_str());
    EXPECT_EQ(NLIBCStrTok(list.get()->items[0], ",", list.address()), 2);
    EXPECT_STREQ(NLIBCSzListGet(list.get(), 2), "yz");
}

// The same result wherever it goes: apart, to the text's own place, or to one that overlaps from below.
TEST(String, TrimSpaceInPlaces)
{
    for (const char *text : {"\t a b \r\n", " \t", "\" a \"", "\"", "\va\f"}) {
        SCOPED_TRACE(text);
        char apart[16], same[16], before[16] = " ";
        ASSERT_TRUE(text_set(same, text));
        const int length = NLIBCStrTrimSpace(same, apart);
        EXPECT_STREQ(same, text);
        EXPECT_EQ(NLIBCStrTrimSpace(same, same), length);
        EXPECT_STREQ(same, apart);
        strncat(before, text, 14);
        EXPECT_EQ(NLIBCStrTrimSpace(before + 1, before), length);
        EXPECT_STREQ(before, apart);
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
    EXPECT_EQ(outcome(NLIBCStrSnprintf, buf, sizeof buf, "%lc", static_cast<wint_t>(0x7fffffff)),
              (Outcome{-1, kErrSystemCall}));
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

TEST(String, BadArguments)
{
    UniqueList list(NLIBCSzListAlloc(0));
    PNLIBSZLIST no_list = nullptr;
    char text[] = "a=b", buf[4];
    const Outcome outcomes[] = {
        outcome(NLIBCStrTok, nullptr, ",", list.address()),
        outcome(NLIBCStrTok, text, nullptr, list.address()),
        outcome(NLIBCStrTok, text, ",", nullptr),
        outcome(NLIBCStrSep, text, ",", &no_list),
        outcome(NLIBCStrSepPair, nullptr, list.address()),
        outcome(NLIBCStrSepPair, text, nullptr),
        outcome(NLIBCStrSepPair, text, &no_list),
        outcome(NLIBCStrSepPair, " =b", list.address()),
        outcome(NLIBCStrTrimSpace, nullptr, nullptr),
        outcome(NLIBCStrReplace, nullptr, "a", "b", nullptr, 4),
        outcome(NLIBCStrReplace, text, nullptr, "b", buf, 4),
        outcome(NLIBCStrReplace, text, "a", nullptr, nullptr, 4),
    };
    for (const Outcome &each : outcomes)
        EXPECT_EQ(each, (Outcome{-1, kErrBadParameter})) << &each - outcomes;
    for (const int size : {-1, 0, 3})
        EXPECT_EQ(outcome(NLIBCStrReplace, text, "=", "=", nullptr, size), (Outcome{-1, kErrBufferTooSmall})) << size;
    EXPECT_STREQ(text, "a=b");
    EXPECT_EQ(list.get()->nItem, 0);
}

} // namespace

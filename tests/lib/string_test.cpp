#include "lib/string.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

#include "autocleanup/unique.h"
#include "tests/support/outcome.h"
#include "tests/support/watched_calls.h"

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
    char before[] = " \t\" a \"\n", text[] = " ab ";
    EXPECT_EQ(NLIBCStrTrimSpace(before + 1, before), 3); // to a place that overlaps from below, not from above
    EXPECT_STREQ(before, " a ");
    EXPECT_EQ(NLIBCStrTrimSpace(text, text + 1), -1);
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
         " Failed to do snprintf(). Buffer size is not enough [4]. Necessary [4] [abc]\n"},
        {"abcd", 0, -1, kErrTextDoesNotFit, "untouched",
         " Failed to do snprintf(). Buffer size is not enough [0]. Necessary [4] []\n"},
        {nullptr, 8, -1, kErrBadParameter, "untouched", " Invaild Argument (format)=[0]\n\n"},
        {"abcd", 8, -1, kErrBadParameter, nullptr, " Invaild Argument (buf)=[0]\n\n"},
    };
    for (const auto &row : kCases) {
        char room[16] = "untouched";
        char *const buf = row.left == nullptr ? nullptr : room;
        const LogCapture log;
        errno = EXDEV;
        EXPECT_EQ(row.text == nullptr ? outcome(NLIBCStrSnprintf, buf, row.size, nullptr)
                                      : outcome(NLIBCStrSnprintf, buf, row.size, "%s%s", "ab", row.text + 2),
                  (Outcome{row.result, row.code}));
        EXPECT_EQ(errno, EXDEV);
        EXPECT_STREQ(buf, row.left);
        EXPECT_TRUE(log.text.ends_with(row.log) && log.text.empty() == (*row.log == '\0')) << log.text;
    }
    char buf[8];
    EXPECT_EQ(outcome(NLIBCStrSnprintf, buf, sizeof buf, "%lc", static_cast<wint_t>(0x7fffffff)),
              (Outcome{-1, kErrSystemCall}));
}

// What the text holds is held against a model elsewhere.
TEST(String, CatGrowsByAStep)
{
    static constexpr struct {
        int first, second, bytes, grown; // lengths; the buffer's bytes after each
    } kCases[] = {
        {1022, 1, 1024, 1024},
        {1023, 1, 1024, 2048},
        {1024, 1, 1025, 2049},
        {3000, 1025, 3001, 4026},
    };
    for (const auto &row : kCases) {
        UniqueText text;
        int bytes = 77;
        NLIBCStrCat(text.address(), &bytes, std::string(static_cast<size_t>(row.first), 'a').c_str());
        EXPECT_EQ(bytes, row.bytes);
        NLIBCStrCat(text.address(), &bytes, std::string(static_cast<size_t>(row.second), 'b').c_str());
        EXPECT_EQ(bytes, row.grown);
    }
    UniqueText text;
    int bytes = 0;
    std::string doubled = "ab"; // its own end and its own whole, within the room and growing
    NLIBCStrCat(text.address(), &bytes, "ab");
    for (int i = 0; i < 12; i++) {
        NLIBCStrCat(text.address(), &bytes, text.get());
        NLIBCStrCat(text.address(), &bytes, text.get() + strlen(text.get()) - 1);
        doubled += doubled + 'b';
        EXPECT_EQ(text.get(), doubled);
    }
}

TEST(String, BadArguments)
{
    UniqueList list(NLIBCSzListAlloc(0));
    PNLIBSZLIST no_list = nullptr;
    char text[] = "a=b";
    int bytes = 0;
    EXPECT_EQ(NLIBCStrCat(nullptr, nullptr, ""), 0); // nothing to add
    for (const Outcome &each :
         {outcome(NLIBCStrTok, nullptr, ",", list.address()), outcome(NLIBCStrSep, text, ",", &no_list),
          outcome(NLIBCStrSepPair, " =b", list.address()), outcome(NLIBCStrTrimSpace, nullptr, nullptr),
          outcome(NLIBCStrReplace, nullptr, "a", "b", nullptr, 4), outcome(NLIBCStrCat, nullptr, &bytes, "a")})
        EXPECT_EQ(each, (Outcome{-1, kErrBadParameter}));
    EXPECT_EQ(list.get()->nItem, 0);
}

} // namespace

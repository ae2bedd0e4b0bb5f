// Which patch of a feed a machine of version 7.1, build 200, takes.
#include <gtest/gtest.h>

#include "install/feed.h"
#include "install/update_request.h"
#include "tests/support/scratch_dir.h"

namespace
{

std::string version(const char *major, const char *minor, const char *build)
{
    return std::string("<MajorVer>") + major + "</MajorVer>\n<MinorVer>" + minor + "</MinorVer>\n<BuildNum>" + build +
           "</BuildNum>\n";
}

const std::string kOurs = "<mUnique>ours</mUnique>\n", kTheirs = "<mUnique>theirs</mUnique>\n",
                  kLink = "<mLink>https://h/a.pat</mLink>\n", kSum = "<mCheckSum>12ab</mCheckSum>\n";
const std::string kModel = kOurs + kLink + kSum, kNew = version("7", "2", "300");
constexpr char kTaken[] = "https://h/a.pat 12ab ";
constexpr char kNoLink[] = "  "; // good, but the feed ended early

TEST(Feed, Choice)
{
    const ScratchDir scratch;
    scratch.write("VERSION",
                  "majorversion=7\nminorversion=1\nbuildphase=hotfix\nbuildnumber=200\nbuilddate=2020/1/1\n");
    const struct {
        const char *what;
        std::string text, found; // empty: refused
    } kRows[] = {
        {"newer", "<?xml version=\"1.0\"?>\n<rss>\n<title>t</title>\n" + kNew + kModel,
         kTaken + std::string("NOS 7.2-300")},
        {"equal", version("7", "1", "200") + kModel, kTaken + std::string("NOS 7.1-200")},
        {"older build of a newer version", version("8", "0", "199") + kModel, ""},
        {"older minor version", version("7", "0", "300") + kModel, ""},
        {"older minor of a newer major version", version("8", "0", "300") + kModel,
         kTaken + std::string("NOS 8.0-300")},
        {"hexadecimal", version("7", "1", "0xc8") + kModel, kTaken + std::string("NOS 7.1-0xc8")},
        {"other models before", kNew + kTheirs + kLink + kSum + "<mUnique>ours2</mUnique>\n" + kModel,
         kTaken + std::string("NOS 7.2-300")},
        {"the first of two", kNew + kModel + version("7", "3", "400") + kModel, kTaken + std::string("NOS 7.2-300")},
        {"the second of two", version("7", "2", "100") + kModel + version("7", "3", "400") + kModel,
         kTaken + std::string("NOS 7.3-400")},
        {"another model within", kNew + kOurs + kTheirs + kLink + kSum, kTaken + std::string("NOS 7.2-300")},
        {"cut behind the model", kNew + kOurs + kLink, kNoLink},
        {"unknown tag empties the one before", kNew + kOurs + "</model>\n" + kLink + kSum, kNoLink},
        {"known tag between", kNew + "<model>\n</model>\n" + kModel, kTaken + std::string("NOS 7.2-300")},
        {"text, blanks and line ends", "\n\n no tag\r\n\t" + kNew + kOurs + "\r\n" + kLink + kSum,
         kTaken + std::string("NOS 7.2-300")},
        {"no newline at the end", kNew + kOurs + kLink + "<mCheckSum>12ab<", kTaken + std::string("NOS 7.2-300")},
        {"nothing behind a NUL", kNew + kOurs + kLink + std::string("<mCheckSum>12\0ab</mCheckSum>\n", 30), kNoLink},
        {"half a tag", "<rss\n" + kNew + kModel, ""},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        NewVersion found;
        const int result = feed_parse(row.text, "ours", scratch.path("VERSION").c_str(), &found);
        EXPECT_EQ(result, row.found.empty() ? -1 : 0);
        EXPECT_EQ(result != 0 ? "" : std::string(found.link) + " " + found.checksum + " " + found.version, row.found);
    }
    const std::string text = version("7", "2", ("300" + std::string(100, ' ')).c_str()) + kOurs + "<mLink>" +
                             std::string(5000, 'l') + "</mLink>\n<mCheckSum>" + std::string(5000, 'c') +
                             "</mCheckSum>\n";
    NewVersion found;
    ASSERT_EQ(feed_parse(text, "ours", scratch.path("VERSION").c_str(), &found), 0); // long values are cut
    EXPECT_EQ(found.link, std::string(1023, 'l'));
    EXPECT_EQ(found.checksum, std::string(255, 'c'));
    EXPECT_EQ(found.version, "NOS 7.2-300" + std::string(60, ' '));
}

TEST(Feed, UrlQuery)
{
    char url[kUrlBytes] = "https://h/a.php";
    EXPECT_EQ(UrlAppendQuery(url, "a", "1"), 0);
    EXPECT_EQ(UrlAppendQuery(url, "b", "2"), 0);
    EXPECT_STREQ(url, "https://h/a.php?a=1&b=2");
    for (const size_t length : {4094U, 4093U, 4090U, 4089U}) { // "?k=vv" needs five and the NUL
        memset(url, 'u', length);
        url[length] = '\0';
        EXPECT_EQ(UrlAppendQuery(url, "k", "vv"), length == 4089 ? 0 : -1);
        EXPECT_EQ(strlen(url), length == 4089 ? 4094U : length);
    }
}

} // namespace

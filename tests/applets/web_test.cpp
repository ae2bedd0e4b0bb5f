// The two web programs that only ask: whether an install runs, and which language the user reads.
#include <gtest/gtest.h>
#include <string>

#include "tests/support/rows.h"

namespace
{

constexpr char kHeader[] = "Expires: Mon, 26 Jul 1990 05:00:00 GMT\r\n"
                           "Cache-Control: no-store, no-cache, must-revalidate\r\n"
                           "Pragma: no-cache\r\n"
                           "Content-type: text/html; charset=\"UTF-8\"\r\n\r\n";
const std::string kFree = std::string(kHeader) + "{\"success\": true, \"data\": {}}";
const std::string kLocked =
    std::string(kHeader) + "{\"success\": false, \"errinfo\": {\"sec\": \"error\", \"key\": \"error_apply_lock\"}}";
constexpr char kLock[] = "/tmp/install.lock";
const RunOptions kLeavesLock = {.leaves = {kLock}};

TEST(LockCheck, SeesAnExclusiveLockOnly)
{
    for (const auto &[kind, answer] : {std::pair("-x", kLocked), {"-s", kFree}}) {
        SCOPED_TRACE(kind);
        Sandbox box;
        Process holder = lock_holder(box, kLock, kind);
        EXPECT_EQ(box.run({"lock_check.cgi"}, kLeavesLock).out, answer);
        holder.close_input();
        holder.wait();
        EXPECT_EQ(box.run({"lock_check.cgi"}, kLeavesLock).out, kFree);
    }
    Sandbox box;
    EXPECT_EQ(box.run({"lock_check.cgi"}, kLeavesLock).out, kFree); // makes the file
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(box.mode(kLock), 0770U & ~mask);
    box.remove(kLock);
    box.directory(kLock); // which cannot be opened
    const Result result = box.run({"lock_check.cgi"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, kLocked);
}

TEST(Session, Language)
{
    constexpr char kAll[] = "enu,cht,chs,krn,ger,fre,ita,spn,jpn,dan,nor,sve,nld,rus,plk,ptb,ptg,hun,trk,csy,tha";
    static constexpr const char *kWords[][2] = {
        {"zh-TW", "cht"}, {"zh-hk", "cht"}, {"zh-mo", "cht"}, {"zh", "chs"}, {"zh-tw-x", "chs"}, {"en", "enu"},
        {"ja", "jpn"},    {"ko", "krn"},    {"es", "spn"},    {"fr", "fre"}, {"it", "ita"},      {"pt-Brazil", "ptb"},
        {"pt", "ptg"},    {"hu", "hun"},    {"tr", "trk"},    {"ru", "rus"}, {"da", "dan"},      {"sv", "sve"},
        {"no", "nor"},    {"nb", "nor"},    {"nn-NO", "nor"}, {"nl", "nld"}, {"pl", "plk"},      {"cs", "csy"},
        {"th", "tha"},    {"DE-at", "ger"}, {"den", "enu"},
    };
    struct Case {
        std::string supplang, accepted, language;
    };
    std::vector<Case> cases = {
        // Swedish comes with Danish
        {"sve,enu", "sv", "enu"},
        {"dan", "sv-SE", "sve"},
        // the first token that is offered wins
        {"ger,enu", "en-GB,de", "enu"},
        {"ger,fre", "ja,fr,de", "fre"},
        {"ptg", "pt-br", "enu"}, // decided by its own row
        {"ptg", "pt-br,pt", "ptg"},
        {"ger,fre", "ja;fr;q=0.5", "fre"},
        {"ger,fre", "ja, fr,de", "ger"}, // tokens keep their blanks
        {"xgerx", "de", "ger"},          // anywhere in the text
        {"", "de", "enu"},
        // 127 bytes of each count
        {"ger", std::string(125, ',') + "de", "ger"},
        {"ger,dan", std::string(126, ',') + "da", "enu"}, // cut to "d"
        {std::string(124, 'x') + "ger", "de", "ger"},
        {std::string(125, 'x') + "ger", "de", "enu"},
    };
    for (const auto &[word, language] : kWords)
        cases.push_back({kAll, word, language});
    Sandbox box;
    for (const auto &[supplang, accepted, language] : cases) {
        SCOPED_TRACE(testing::Message() << supplang << " / " << accepted);
        box.file("/etc.defaults/norvinfo.conf", "supportraid=\"no\"\nsupplang=\"" + supplang + "\"\n");
        const Result result = box.run({"session.cgi"}, {.env = {"HTTP_ACCEPT_LANGUAGE=" + accepted}});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out,
                  "Content-type: application/json; charset=\"UTF-8\"\r\n\r\n{ \"lang\": \"" + language + "\" }");
    }
    box.file("/etc.defaults/norvinfo.conf", "supplang=\"ger\"\n");
    EXPECT_NE(box.run({"session.cgi"}).out.find("\"enu\""), std::string::npos); // the request names no language
}

} // namespace

// The two web programs that only ask: whether an install runs, and which language the user reads.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

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

TEST(LockCheck, MakesTheFileAndKeepsNothing)
{
    Sandbox box;
    for (int i = 0; i < 2; i++) { // the second finds it
        const Result result = box.run({"lock_check.cgi"}, kLeavesLock);
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, kFree);
    }
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(box.mode(kLock), 0770U & ~mask);
    EXPECT_EQ(box.read_file(kLock), "");
}

TEST(LockCheck, SeesAnExclusiveLockOnly)
{
    const struct {
        const char *kind;
        const std::string &answer;
    } kCases[] = {{"-x", kLocked}, {"-s", kFree}};
    for (const auto &[kind, answer] : kCases) {
        SCOPED_TRACE(kind);
        Sandbox box;
        box.host_program("/usr/bin/flock");
        Process holder = box.start({"/usr/bin/flock", kind, kLock, "-c", "echo held; read line"},
                                   {.input_open = true, .leaves = {kLock}});
        while (holder.running() && holder.out() != "held\n")
            usleep(1000);
        EXPECT_EQ(box.run({"lock_check.cgi"}, kLeavesLock).out, answer);
        holder.close_input();
        holder.wait();
        EXPECT_EQ(box.run({"lock_check.cgi"}, kLeavesLock).out, kFree);
    }
}

TEST(LockCheck, FileCannotBeOpened)
{
    Sandbox box;
    box.directory(kLock);
    const Result result = box.run({"lock_check.cgi"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, kLocked);
}

TEST(Session, Language)
{
    constexpr char kAll[] = "enu,cht,chs,krn,ger,fre,ita,spn,jpn,dan,nor,sve,nld,rus,plk,ptb,ptg,hun,trk,csy,tha";
    const struct {
        std::string supplang, accepted, language;
    } kCases[] = {
        // each row of the table, first by the bare word
        {kAll, "zh-TW", "cht"},
        {kAll, "zh-hk", "cht"},
        {kAll, "zh-mo", "cht"},
        {kAll, "zh", "chs"},
        {kAll, "zh-tw-x", "chs"},
        {kAll, "zhu", "chs"},
        {kAll, "en", "enu"},
        {kAll, "de", "ger"},
        {kAll, "ja", "jpn"},
        {kAll, "ko", "krn"},
        {kAll, "es", "spn"},
        {kAll, "fr", "fre"},
        {kAll, "it", "ita"},
        {kAll, "pt-br", "ptb"},
        {kAll, "pt-Brazil", "ptb"},
        {kAll, "pt", "ptg"},
        {kAll, "hu", "hun"},
        {kAll, "tr", "trk"},
        {kAll, "ru", "rus"},
        {kAll, "da", "dan"},
        {kAll, "sv", "sve"},
        {kAll, "no", "nor"},
        {kAll, "nb", "nor"},
        {kAll, "nn", "nor"},
        {kAll, "nl", "nld"},
        {kAll, "pl", "plk"},
        {kAll, "cs", "csy"},
        {kAll, "th", "tha"},
        {kAll, "DE-at", "ger"},
        {kAll, "pt-PT", "ptg"},
        {kAll, "nn-NO", "nor"},
        {kAll, "den", "enu"}, // neither "de" nor "de-"
        {kAll, "d", "enu"},
        // Swedish comes with Danish
        {"sve,enu", "sv", "enu"},
        {"dan", "sv-SE", "sve"},
        // the first token that is offered wins
        {"ger,fre", "ja,fr,de", "fre"},
        {"enu", "pt-br,pt", "enu"},
        {"ptg", "pt-br", "enu"}, // decided by its own row
        {"ptg", "pt-br,pt", "ptg"},
        {"chs", "zh-tw", "enu"},
        {"ger,fre", "ja;fr;q=0.5", "fre"},
        {"ger", "q=0.9,de", "ger"},
        {"ger,fre", "ja, fr,de", "ger"}, // tokens keep their blanks
        {"ger", ",;,de", "ger"},
        {"xgerx", "de", "ger"}, // anywhere in the text
        {"GER", "de", "enu"},
        {"ger", "", "enu"},
        {"", "de", "enu"},
        // 127 bytes of each count
        {"ger", std::string(125, ',') + "de", "ger"},
        {"ger,dan", std::string(126, ',') + "da", "enu"}, // cut to "d"
        {std::string(124, 'x') + "ger", "de", "ger"},
        {std::string(125, 'x') + "ger", "de", "enu"},
    };
    Sandbox box;
    for (const auto &[supplang, accepted, language] : kCases) {
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

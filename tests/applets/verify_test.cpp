// What vouches for a patch: the checksum list of a folder, the signature of an old patch, the signed archive.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "build_paths.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kLibrary[] = "/usr/lib/libnorvcodesign-ng-virtual-junior-wins.so.7";
constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
const std::string kListPath = "/upd/checksum.norv";

// A box with files whose checksums are known: "hello\n" (6 bytes), three bytes, an empty file and a link.
class Checksum : public testing::Test
{
  protected:
    Checksum()
    {
        box.host_file("/usr/bin/cksum", NORV_BINARY_DIR "/platform/programs/cksum");
        box.file("/upd/hello", "hello\n");
        box.file("/upd/abc", "abc");
        box.file("/upd/four", "abcd");
        box.file("/upd/empty", "");
        box.symlink("/upd/link", "hello");
        box.file("/upd-evil/x", "hello\n");
        box.file("/upd/sub/deep", std::string(5000, '\xff'));
    }
    int check(const std::string &list, const char *folder = "/upd")
    {
        box.file(kListPath, list);
        return box.run({"norvchecksum", folder}).exit_status;
    }
    Sandbox box;
};

// "hello\n": crc32, 6 bytes; the spot at position 1 moves forward to where four bytes are left.
const std::string kHello = "909783072 6 hello 7 428\n"; // e l l o
const std::string kAbc = "891568578 3 abc 4 294\n";
const std::string kEmpty = "0 0 empty 9 2767\n";
const std::string kLink = "0 5 link 7 2\n";
const std::string kAll = kHello + kAbc + kEmpty + kLink;
const std::string kTotals = "# Norvcksum 14 27 3491\n";

TEST_F(Checksum, Lists)
{
    const std::string name255(255, 'n');
    box.file("/upd/" + name255, "abc");
    box.file("/upd/ten", "abcdefghij");
    box.symlink("/upd/out", "../upd-evil/x");
    box.symlink("/upd/dangling", "nothing");
    const struct {
        const char *what;
        std::string list;
        int exit_status;
    } kRows[] = {
        {"all kinds with totals", kAll + kTotals, 0},
        {"no last line", kAll, 0},
        {"cut in the last data line", kAll.substr(0, kAll.size() - 1), 0},
        {"lines behind the last are not read", kAll + kTotals + "nonsense\n", 0},
        {"blanks and tabs", " \t909783072\t6  hello 7\t428\n#Norvcksum\t6 7  428", 0},
        {"nothing at all", "", 1},
        {"empty line", kAll + "\n", 1},
        {"sizes", kAll + "# Norvcksum 15 27 3491\n", 1},
        {"offsets", kAll + "# Norvcksum 14 28 3491\n", 1},
        {"spots", kAll + "# Norvcksum 14 27 3492\n", 1},
        {"crc", "909783073 6 hello 7 428\n", 1},
        {"crc is compared as text", "0909783072 6 hello 7 428\n", 1},
        {"size", "909783072 7 hello 7 428\n", 1},
        {"spot", "909783072 6 hello 7 429\n", 1},
        {"spot before the file", "909783072 6 hello 5 428\n", 1},
        {"spot by chance, of which four bytes have one", "3984772369 4 four -1 394\n# Norvcksum 4 -1 394\n", 0},
        {"six fields", "909783072 6 hello 7 428 1\n", 1},
        {"no number", "909783072 6 hello 7x 428\n", 1},
        {"sixteen digits", "909783072 6 hello 0000000000000007 428\n", 1},
        {"fifteen digits", "909783072 6 hello 000000000000007 428\n", 0},
        {"longest name", "891568578 3 " + name255 + " 4 294\n", 0},
        {"overlong name", "891568578 3 " + name255 + "n 4 294\n", 1},
        {"overlong line", "909783072 6 hello 7 428" + std::string(500, ' ') + "\n", 1},
        {"missing file", "909783072 6 none 7 428\n", 1},
        {"a folder", "0 0 sub 7 428\n", 1},
        {"beside the folder", "909783072 6 ../upd-evil/x 7 428\n", 1},
        {"a link to outside", "0 13 out 14 1\n", 1},
        {"a dangling link", "0 7 dangling 8 1\n", 1},
        // Four bytes before the end is the last spot that stands where it is; behind it, spots move forward by four.
        {"last spot", "964784186 10 ten 16 " + std::to_string('g' + 'h' + 'i' + 'j') + "\n", 0},
        {"moved spot", "964784186 10 ten 17 " + std::to_string('d' + 'e' + 'f' + 'g') + "\n", 0},
        {"spot far behind", "964784186 10 ten 100 " + std::to_string('g' + 'h' + 'i' + 'j') + "\n", 0},
        {"big bytes", "864741524 5000 sub/deep 6000 1020\n", 0},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(check(row.list), row.exit_status);
        EXPECT_FALSE(box.exists("/tmp/cksum.tmp"));
    }
    box.file("/dev/checksum.norv", "0 0 null 130 1814\n# Norvcksum 0 130 1814\n");
    EXPECT_EQ(box.run({"norvchecksum", "/dev"}).exit_status, 0);
    EXPECT_EQ(check(kAll, "/none"), 1);
    EXPECT_EQ(box.run({"norvchecksum", "/upd", "/upd"}).exit_status, 1);
}

// A tool that fails, and one that says nothing, with a planted result that would do.
TEST_F(Checksum, ToolThatFails)
{
    for (const ProgramRow &row : {ProgramRow{.output = "909783072 6 hello\n", .exit_status = 1}, ProgramRow{}}) {
        box.remove("/tmp/cksum.tmp");
        box.file("/planted", "909783072 6\n");
        box.symlink("/tmp/cksum.tmp", "/planted");
        box.program("/usr/bin/cksum", {row});
        EXPECT_EQ(check(kHello), 1);
        EXPECT_EQ(box.read_file("/planted"), "909783072 6\n");
        EXPECT_EQ(box.calls("/usr/bin/cksum").back().args, (std::vector<std::string>{"-o", "3", "/upd/hello"}));
        box.remove("/usr/bin/cksum");
    }
}

TEST(Codesign, EndsGoodOnlyWhenTheLibrarySaysSo)
{
    const struct {
        const char *what, *library; // NULL: there is none
        const char *args;
        int exit_status;
        const char *record = "", *out = "", *conf = "x=1\n", *hardware = "NS0801\n";
    } kRows[] = {
        {"good", "", "/upd", 0, "*sign init\n*load /upd/Norvessa.sig\n*verify 0\n*sign free 1"},
        {"verify, error 3", "verify 0 error 3", "/upd", 3, "log err verify norvcodesign fail. err=3\n*free 1"},
        {"verify, error 256", "verify 0 error 256", "/upd", 8, "log err verify norvcodesign fail. err=256"},
        {"load, error 5", "load 0 error 5", "/upd", 255, "log err load Norvessa.sig fail."},
        {"no handle", "init 0", "/upd", 8},
        {"no library", nullptr, "/upd", 8, "log err *Failed to load libnorvcodesign*"},
        {"no folder", "", "/none", 255, "log err chdir fail, reason=No such file*\n*sign free 1"},
        {"no argument", "", "", 255, "*sign free 1", "invalid argument!\n"},
        {"two arguments", nullptr, "/upd /upd", 255, "", "invalid argument!\n"},
        {"waived", "verify 0 error 3", "/upd", 0, "*sign free 1", "", "skip_codesign=no\n"},
        {"virtual", "verify 0 error 3", "/upd", 3, "", "", "skip_codesign=yes\n", "VirtualNOS\n"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        box.directory("/upd");
        box.file(kConf, row.conf);
        box.file("/proc/sys/kernel/norv_hw_version", row.hardware);
        if (row.library != nullptr)
            box.host_file(kLibrary, FAKE_CODESIGN);
        box.file("/etc/fake_codesign", row.library != nullptr ? row.library : "");
        const Result result = box.run(words(row.args, "norvcodesign"));
        EXPECT_EQ(result.exit_status, row.exit_status);
        EXPECT_EQ(result.out, row.out);
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
    }
}

TEST(ExtractSystemPatch, EachEnd)
{
    const std::string kOpen = "norvinstall: norvarchive: [/a.pat]";
    const struct {
        const char *library;
        int exit_status;
        std::string record;
    } kRows[] = {
        {"", 0,
         "log info *" + kOpen +
             "[OPEN] Type: System\nlog info *[INIT] Start\n*library init /dest\n"
             "log info *[INIT] End: [Success][0][0.*s]\nlog info *" +
             kOpen +
             "[OPEN] Start\n*library open /a.pat 0\n"
             "log info *[OPEN] End: [Success][0][*s]\nlog info *[EXTRACT_ALL] Start\n*library multiple all 5\n"
             "log info *[EXTRACT_ALL] End: [Success][0][*s]\nlog info *[FREE] Start\n*library free 1\n"
             "log info *[FREE] End: [Success][0][*s]"},
        {"open 0 error 14", 255, "log info *[OPEN] End: [Bad Sig][14][*s]\n*library free 1"},
        {"extract 0 error 7", 255, "log info *[EXTRACT_ALL] End: [Fail][7][*s]\n*library free 1"},
        {nullptr, 255, "log err *Failed to load libnorvcodesign*"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.library != nullptr ? row.library : "no library");
        Sandbox box;
        if (row.library != nullptr) {
            box.host_file(kLibrary, FAKE_CODESIGN);
            box.file("/etc/fake_codesign", row.library);
        }
        const Result result = box.run({"norv_extract_system_patch", "/a.pat", "/dest"});
        EXPECT_EQ(result.exit_status, row.exit_status);
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
    }
}

} // namespace

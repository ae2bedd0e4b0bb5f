#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lib/file.h"
#include "lib/report.h"
#include "tests/support/containers.h"
#include "tests/support/outcome.h"
#include "tests/support/scratch_dir.h"

using namespace std::string_view_literals;

namespace
{

using Pairs = std::map<std::string, std::string>;
using Names = std::vector<std::string>;

TEST(FileEnumSection, Headers)
{
    const ScratchDir dir;
    const std::string longest(1020, 'n');
    const std::string path = dir.write(
        "f", "a=[x]\n[one]\n [no]\n#[no]\n[]\n[two] \t\v\f\r\n[a]b]\n[no] x\n[no\n[[in]]\n[" + longest + "]\n[last]");
    UniqueList list(NLIBCSzListAlloc(0));
    NLIBCSzListPush(list.address(), "before");
    EXPECT_EQ(NLIBCFileEnumSection(path.c_str(), list.address()), 8);
    EXPECT_EQ(items_of(list.get()), (Names{"before", "one", "", "two", "a]b", "[in]", longest, "last"}));
    dir.write("f", "[one]\n[" + longest + "n]\n[two]\n");
    NLIBCSzListReset(list.get());
    EXPECT_EQ(NLIBCFileEnumSection(path.c_str(), list.address()), -1);
    EXPECT_EQ(items_of(list.get()), Names{"one"}) << "a header of 1024 bytes ends it";

    PNLIBSZLIST none = nullptr;
    const struct {
        const char *file;
        PNLIBSZLIST *list;
        int code;
    } bad[] = {
        {nullptr, list.address(), kErrBadParameter},
        {path.c_str(), nullptr, kErrBadParameter},
        {path.c_str(), &none, kErrBadParameter},
        {"/nowhere", list.address(), kErrOpen},
        {"/", list.address(), kErrRead},
    };
    for (const auto &row : bad)
        EXPECT_EQ(outcome(NLIBCFileEnumSection, row.file, row.list), (Outcome{-1, row.code}));
}

TEST(FileGetSection, Pairs)
{
    static constexpr std::string_view kText = "a=0\n[one]\n a = \"1\" \n#c=2\n\nno pair\n=x\ne=\nf=g=h\na=2\n"
                                              "[broken\nx=1\n[one]\ny=1\n[] \nz=1\n[last]\nz\0=1\nl=1"sv;
    const ScratchDir dir;
    const std::string path = dir.write("f", kText);
    const struct {
        const char *section;
        Pairs pairs;
        int code;
    } cases[] = {
        {"one", {{"a", "2"}, {"#c", "2"}, {"e", ""}, {"f", "g=h"}}, kErrNone}, // any '[' ends it
        {"", {{"z", "1"}}, kErrNone},
        {"last", {{"l", "1"}}, kErrNone},
        {"broken", {}, kErrSectionMissing},
        {"on", {}, kErrSectionMissing},
    };
    for (const auto &row : cases) {
        UniqueHash hash(NLIBCSzHashAlloc(0));
        NLIBCSzHashSetValue(hash.address(), "before", "0");
        Pairs expected = row.pairs;
        expected["before"] = "0";
        NLIBCErrSet(kErrVendorData, "", 0); // a success takes it away
        EXPECT_EQ(NLIBCFileGetSection(path.c_str(), row.section, hash.address()), static_cast<int>(expected.size()));
        EXPECT_EQ(NLIBCErrGet(), row.code) << row.section;
        EXPECT_EQ(pairs_of(hash.get()), expected) << row.section;
    }
    UniqueHash hash(NLIBCSzHashAlloc(0));
    EXPECT_EQ(outcome(NLIBCFileGetSection, "/nowhere", "one", hash.address()), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(outcome(NLIBCFileGetSection, path.c_str(), nullptr, hash.address()), (Outcome{-1, kErrBadParameter}));
}

TEST(FileMatchSection, Lines)
{
    static constexpr struct {
        const char *line, *section;
        int length, result; // length -1: the line's own
    } kLines[] = {
        {"[a]\n", "a", -1, 1}, {"[a] \t\v\f\r\n", "a", -1, 1},
        {"[a]x", "a", 3, 1},   {"[a]x", "a", -1, 0},
        {" [a]", "a", -1, 0},  {"[ab]", "a", -1, 0},
        {"[a ]", "a", -1, 0},  {"[]", "", -1, 1},
        {"[a]", "A", -1, 0},   {"[a]]", "a]", -1, 1},
        {"[a]", "a", 2, 0},    {"[a]", "a", 0, 0},
        {"[a]", "a", -2, 0},   {"a", "a", -1, 0},
        {"", "", -1, 0},
    };
    for (const auto &row : kLines)
        EXPECT_EQ(NLIBCFileMatchSection(row.line, row.length == -1 ? static_cast<int>(strlen(row.line)) : row.length,
                                        row.section),
                  row.result)
            << row.line << row.section;
    EXPECT_EQ(NLIBCFileMatchSection(nullptr, 0, "a"), -1);
    EXPECT_EQ(NLIBCFileMatchSection("[a]", 3, nullptr), -1);
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
}

TEST(FileSetSection, Texts)
{
    static constexpr struct {
        std::string_view before;
        const char *section, *new_name, *format;
        int result;
        std::string_view set, removed; // the file after the one and the other
    } kCases[] = {
        {"a=0\n[s]\na=1\nb=2\n[t]\nc=3", "s", nullptr, nullptr, 1, "a=0\n[s]\nk=v\n[t]\nc=3", "a=0\n[t]\nc=3"},
        {"[s]\n;one\na=1\n\n#two=2\n [t]\n[no\nx", "s", "new", kConfFormat, 1, "[new]\nk=\"v\"\n;one\n#two=2\n",
         ";one\n#two=2\n"},
        {"[r]\na=1\n[s] \t\r\n", "s", "", nullptr, 1, "[r]\na=1\n[]\nk=v\n", "[r]\na=1\n"},
        {"[s]\na\n[t]\nb\n[s]\nc\n", "s", nullptr, nullptr, 1, "[s]\nk=v\n[t]\nb\n[s]\nk=v\n", "[t]\nb\n"},
        {"[s]\na\0b\n#c\0d\n[t]\0\n[t]\n\0x"sv, "s", nullptr, nullptr, 1, "[s]\nk=v\n#c\0d\n[t]\n\0x"sv,
         "#c\0d\n[t]\n\0x"sv},
        {"[t]\na=1\n\0x"sv, "s", "new", nullptr, 0, "[t]\na=1\n\0x"sv, "[t]\na=1\n\0x"sv},
        {"", "s", nullptr, nullptr, 0, "", ""},
    };
    const ScratchDir dir;
    UniqueHash hash(NLIBCSzHashAlloc(0));
    ASSERT_GE(NLIBCSzHashSetValue(hash.address(), "k", "v"), 0);
    for (const auto &row : kCases) {
        const std::string path = dir.write("f", row.before, 04640);
        EXPECT_EQ(outcome(NLIBCFileSetSection, path.c_str(), row.section, row.new_name, hash.get(), row.format),
                  (Outcome{row.result, row.result == 1 ? kErrNone : kErrKeyMissing}));
        EXPECT_EQ(dir.read("f"), row.set) << row.before;
        dir.write("f", row.before, 04640);
        EXPECT_EQ(NLIBCFileRemoveSection(path.c_str(), row.section), row.result);
        EXPECT_EQ(dir.read("f"), row.removed) << row.before;
        struct stat status;
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 04640U);
        EXPECT_EQ(dir.names(), Names{"f"});
    }
}

TEST(FileSetSection, Failures)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "[s]\na=1\n");
    UniqueHash hash(NLIBCSzHashAlloc(0));
    const std::string missing = dir.path("missing");
    const struct {
        const char *file, *section;
        PNLIBSZHASH hash;
        const char *format;
        int code;
    } cases[] = {
        {nullptr, "s", hash.get(), nullptr, kErrBadParameter},
        {path.c_str(), nullptr, hash.get(), nullptr, kErrBadParameter},
        {path.c_str(), "s", nullptr, nullptr, kErrBadParameter},
        {path.c_str(), "s", hash.get(), "%s=%s", kErrBadParameter},
        {missing.c_str(), "s", hash.get(), nullptr, kErrOpen}, // nothing is made
        {"/", "s", hash.get(), nullptr, kErrOpen},
    };
    for (const auto &row : cases)
        EXPECT_EQ(outcome(NLIBCFileSetSection, row.file, row.section, nullptr, row.hash, row.format),
                  (Outcome{-1, row.code}));
    EXPECT_EQ(outcome(NLIBCFileRemoveSection, missing.c_str(), "s"), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(outcome(NLIBCFileRemoveSection, path.c_str(), nullptr), (Outcome{-1, kErrBadParameter}));
    EXPECT_EQ(dir.names(), Names{"f"});
    EXPECT_EQ(dir.read("f"), "[s]\na=1\n");
}

TEST(HashToFile, SlotOrderAndFormat)
{
    const ScratchDir dir;
    UniqueHash hash(NLIBCSzHashAlloc(0));
    for (const char *key : {"d", "c", "b", "a", "gone"}) // one-byte keys: their codes modulo 31 give the order
        ASSERT_GE(NLIBCSzHashSetValue(hash.address(), key, key), 0);
    ASSERT_NE(NLIBCSzHashRemove(hash.get(), "gone"), nullptr);
    UniqueFile file(fopen(dir.path("f").c_str(), "we"));
    EXPECT_EQ(NLIBCHashToFile(file.get(), "s", hash.get(), nullptr), 0);
    EXPECT_EQ(NLIBCHashToFile(file.get(), nullptr, hash.get(), "<%s = '%s'>\n"), 0);
    EXPECT_EQ(NLIBCHashToFile(file.get(), "alone", nullptr, nullptr), 0);
    EXPECT_EQ(NLIBCHashToFile(file.get(), "s", hash.get(), "%s=%d\n"), -1);
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
    EXPECT_EQ(NLIBCHashToFile(nullptr, "s", hash.get(), nullptr), -1);
    file.reset();
    EXPECT_EQ(dir.read("f"), "[s]\na=a\nb=b\nc=c\nd=d\n<a = 'a'>\n<b = 'b'>\n<c = 'c'>\n<d = 'd'>\n[alone]\n");

    for (const char *section : {"s", static_cast<const char *>(nullptr)}) {
        file.reset(fopen("/dev/full", "we"));
        setvbuf(file.get(), nullptr, _IONBF, 0);
        EXPECT_EQ(NLIBCHashToFile(file.get(), section, hash.get(), nullptr), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrWrite);
    }
}

TEST(FileCheckFormat, FourPiecesInOrder)
{
    static constexpr struct {
        const char *format;
        int result;
    } kFormats[] = {
        {nullptr, 1},   {"%s=%s\n", 1}, {kConfFormat, 1}, {"x %s\t=\n'%s'; \n\n", 1},
        {"", 0},        {"%s=%s", 0},   {"%s%s=\n", 0},   {"=%s%s\n", 0},
        {"\n%s=%s", 0}, {"%s=%d\n", 0},
    };
    for (const auto &row : kFormats)
        EXPECT_EQ(outcome(NLIBCFileCheckFormat, row.format),
                  (Outcome{row.result, row.result == 1 ? 0 : kErrBadFormat}));
}

TEST(FileReadLines, Pieces)
{
    const ScratchDir dir;
    const std::string piece(1023, 'x');
    const std::string path = dir.write("f", "one\n\n" + piece + "\n" + piece.substr(1) + "\n" + piece + piece + "end");
    UniqueList list(NLIBCSzListAlloc(0));
    EXPECT_EQ(NLIBCFileReadLines(path.c_str(), list.address()), 0);
    EXPECT_EQ(items_of(list.get()), (Names{"one\n", "\n", piece, "\n", piece.substr(1) + "\n", piece, piece, "end"}));
    EXPECT_EQ(outcome(NLIBCFileReadLines, "/nowhere", list.address()), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(outcome(NLIBCFileReadLines, "/", list.address()), (Outcome{-1, kErrRead}));
    EXPECT_EQ(outcome(NLIBCFileReadLines, path.c_str(), nullptr), (Outcome{-1, kErrBadParameter}));
}

TEST(FileTouch, MakesOnlyWhatIsMissing)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "text");
    EXPECT_EQ(NLIBCFileTouch(path.c_str()), 0);
    EXPECT_EQ(dir.read("f"), "text");
    EXPECT_EQ(NLIBCFileTouch(dir.path("new").c_str()), 0);
    EXPECT_EQ(dir.read("new"), "");
    EXPECT_EQ(outcome(NLIBCFileTouch, "/"), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(outcome(NLIBCFileTouch, nullptr), (Outcome{-1, kErrBadParameter}));
}

TEST(FileIsRegular, Kinds)
{
    const ScratchDir dir;
    dir.write("f", "");
    ASSERT_EQ(symlink("f", dir.path("link").c_str()), 0);
    ASSERT_EQ(symlink("none", dir.path("dangling").c_str()), 0);
    for (const char *name : {"f", "link"})
        EXPECT_TRUE(NLIBCFileIsRegular(dir.path(name).c_str())) << name;
    for (const std::string &path : {dir.path("dangling"), dir.path(), std::string("/dev/null")})
        EXPECT_FALSE(NLIBCFileIsRegular(path.c_str())) << path;
    EXPECT_FALSE(NLIBCFileIsRegular(nullptr));
}

} // namespace

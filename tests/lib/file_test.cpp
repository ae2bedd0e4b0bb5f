// Key-value files and their sections. Files of any bytes are held against a plain walk elsewhere, and faults of the
// system calls beside this.
#include "lib/file.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/containers.h"
#include "tests/support/in_child.h"
#include "tests/support/outcome.h"
#include "tests/support/scratch_dir.h"

using namespace std::string_view_literals;

namespace
{

using Names = std::vector<std::string>;
constexpr Outcome kBad = {-1, kErrBadParameter};

TEST(FileGetKeyValue, SyntaxAndRoom)
{
    static constexpr struct {
        std::string_view text;
        const char *key;
        int result;
        const char *buf; // "old" before the call
        int code = 0;
        int size = 64;
        int flags = 0;
    } kCases[] = {
        {"b=2\na=1\na=3\n", "a", 2, "1"},
        {"A=1\nab=1\nba=1\nx=a\n", "a", 0, "old", kErrKeyMissing},
        {"#a=1\n;a=2\na=3\n", "a", 2, "3"},
        {"  #a=1\n", "#a", 2, "1"}, // only the first byte makes a comment
        {"==a==b=c\n", "a", 5, "=b=c"},
        {"a=1 # x\n", "a", 6, "1 # x"},
        {" \ta\r =\t x y \r\n", "a", 4, "x y"},
        {"a=\v1\f\n", "a", 4, "\v1\f"}, // no white space here
        {"\"a\"=\" x \"\n", "a", 4, " x "},
        {"a=\"\n", "a", 2, "\""},
        {"a=\"\"b\"\"\n", "a", 4, "\"b\""},                // one pair goes
        {"a= \t\r\na=1\n", "a", 0, "old", kErrKeyMissing}, // the first line counts, also an empty one
        {"foo\n", "foo", 0, "old", kErrKeyMissing},        // a key without a value
        {"x\0a=1\na=1\0002\n"sv, "a", 2, "1"},             // nothing is seen behind a NUL
        // room
        {"a=abc\n", "a", 4, "abc", 0, 4},
        {"a=abc\n", "a", -1, "old", kErrBufferTooSmall, 3},
        {"a=\"\"\n", "a", 1, "", 0, 1},
        {"a=\n", "a", -1, "old", kErrBufferTooSmall, -5}, // less room than nothing takes
        // the last line wins
        {"a=1\nb=2\na=33", "a", 3, "33", 0, 64, 1},
        {"a=1\na=22\n", "a", 2, "1", 0, 64, 2}, // bit 0 alone says so
        {"a=1\na=long\n", "a", -1, "1", kErrBufferTooSmall, 3, 1},
        {"a=1\na=\na=333\n", "a", 4, "1", 0, 64, 1}, // an empty line ends the copying, not the counting
        {"a=1\n", "a", -1, "old", kErrBadParameter, 64, -1},
        {"a=1\n", nullptr, -1, "old", kErrBadParameter},
    };
    const ScratchDir dir;
    char buf[64];
    for (const auto &row : kCases) {
        const std::string path = dir.write("f", row.text);
        strcpy(buf, "old");
        EXPECT_EQ(outcome(NLIBCFileGetKeyValue, path.c_str(), row.key, buf, row.size, row.flags),
                  (Outcome{row.result, row.code}))
            << row.text;
        EXPECT_STREQ(buf, row.buf) << row.text;
    }
    const std::string path = dir.write("f", "a=abc\n");
    EXPECT_EQ(NLIBCFileGetKeyValue(path.c_str(), "a", nullptr, 0, 0), 4); // a question for the room
    EXPECT_EQ(outcome(NLIBCFileGetKeyValue, path.c_str(), "a", nullptr, 8, 0), kBad);
    EXPECT_EQ(outcome(NLIBCFileGetKeyValue, "", "a", buf, 8, 0), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(outcome(NLIBCFileGetKeyValue, "/", "a", buf, 8, 0), (Outcome{0, kErrKeyMissing})); // opens without lines
}

// The first 16 KiB are read at once: the key's line ends before, on, behind and far behind that edge.
TEST(FileGetKeyValue, LinesAroundTheFirstRead)
{
    const ScratchDir dir;
    for (size_t lead = 16384 - 12; lead <= 16384 + 5; lead++)
        for (const char *line : {"key=value\n", "key=value", "key=value\nkey=other\n"}) {
            const size_t bytes = lead <= 16384 + 4 ? lead : 1 << 20;
            const std::string path = dir.write("f", std::string(bytes - 1, 'x') + "\n" + line);
            char buf[16] = "old";
            EXPECT_EQ(NLIBCFileGetKeyValue(path.c_str(), "key", buf, sizeof(buf), 0), 6) << bytes << line;
            EXPECT_STREQ(buf, "value") << bytes << line;
        }
}

// A pipe gives a line in pieces.
TEST(FileGetKeyValue, Pieces)
{
    const ScratchDir dir;
    const std::string path = dir.path("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    FILE *writer = popen(("(printf 'x=1\\nke'; sleep .02; printf y=val; sleep .02; echo ue) >" + path).c_str(), "we");
    EXPECT_EQ(NLIBCFileGetKeyValue(path.c_str(), "key", nullptr, 0, 0), 6);
    EXPECT_EQ(pclose(writer), 0);
}

TEST(FileCheckKeyValue, Answers)
{
    const ScratchDir dir;
    const std::string fits(511, 'v'), over(512, 'v');
    const std::string path = dir.write("f", "a=YES\nb=\nc=\"\"\nfits=" + fits + "\nover=" + over + "\n");
    const struct {
        const char *key, *expected;
        int fallback, result;
    } cases[] = {
        {"a", "yes", 0, 1},
        {"a", "no", 1, 0},
        {"b", "", 7, 7},
        {"c", "", 0, 1}, // empty is missing
        {"fits", fits.c_str(), 0, 1},
        {"over", over.c_str(), 1, 0},
        {"a", nullptr, 1, 0},
    };
    for (const auto &row : cases)
        EXPECT_EQ(NLIBCFileCheckKeyValue(path.c_str(), row.key, row.expected, row.fallback), row.result) << row.key;
    EXPECT_EQ(NLIBCFileCheckKeyValue("/nowhere", "a", "yes", 1), 0); // the fallback is for keys, not for files

    EXPECT_TRUE(NLIBCFileLineKeyMatch(" \"a\" = 1", "a"));
    EXPECT_FALSE(NLIBCFileLineKeyMatch("#a=1", "#a") || NLIBCFileLineKeyMatch(nullptr, "a"));
}

TEST(FileSetKeyValue, Texts)
{
    static const std::string line = "b=" + std::string(1 << 20, 'b') + "\n", value(1 << 20, '%');
    static const std::string before = line + "a=0\n" + line, after = line + "a=" + value + "\n" + line;
    const struct {
        std::string_view before;
        const char *key, *value, *format;
        std::string_view after;
    } kCases[] = {
        {"", "a", "1", nullptr, "a=1\n"},
        {"b=2", "a", "1", kConfFormat, "b=2\na=\"1\"\n"},
        {"a=0\nb=2", "a", "1", nullptr, "a=1\nb=2"},
        {"x\na=1\n# a\na=2\ny\na=3\n", "a", "new", nullptr, "x\na=new\n# a\ny\n"}, // three become one
        {" \t b =  1 \r\n#a=1\n;a\n\n[s]\n  a = \"0\"\n", "a", "1", nullptr, " \t b =  1 \r\n#a=1\n;a\n\n[s]\na=1\n"},
        {"a=0\n", "a", "%s %d %n \\n \\", kConfFormat, "a=\"%s %d %n \\n \\\"\n"},
        {"b=2\n", "a", "1\nc=3", "%s:%s", "b=2\na:1\nc=3"}, // neither format nor value is looked at
        {"\0z\0\nb\0b=1\nx\0a=2\n\0"sv, "a", "1", nullptr, "\0z\0\nb\0b=1\nx\0a=2\n\0\na=1\n"sv},
        {before, "a", value.c_str(), nullptr, after},
    };
    const ScratchDir dir;
    for (const auto &row : kCases) {
        const std::string path = dir.write("f", row.before);
        EXPECT_EQ(NLIBCFileSetKeyValue(path.c_str(), row.key, row.value, row.format), 1);
        EXPECT_TRUE(dir.read("f") == row.after) << row.before.substr(0, 99) << dir.read("f").substr(0, 99);
        EXPECT_EQ(dir.names(), Names{"f"});
    }
    // A format has a limit where a line is appended, and there alone.
    const std::string path = dir.write("f", "b=2\n"), longest = std::string(4088, ' ') + "%s=%s\n",
                      longer = " " + longest;
    EXPECT_EQ(outcome(NLIBCFileSetKeyValue, path.c_str(), "a", "1", longer.c_str()), (Outcome{-1, kErrBufferTooSmall}));
    EXPECT_EQ(NLIBCFileSetKeyValue(path.c_str(), "b", "1", longer.c_str()), 1);
    EXPECT_EQ(NLIBCFileSetKeyValue(path.c_str(), "a", "1", longest.c_str()), 1);
    EXPECT_EQ(outcome(NLIBCFileSetKeyValue, path.c_str(), nullptr, "1", nullptr), kBad);
    EXPECT_EQ(outcome(NLIBCFileSetKeyValue, "/", "a", "1", nullptr), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(outcome(NLIBCFileSetKeyValue, "/no/where", "a", "1", nullptr), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(dir.names(), Names{"f"});
}

TEST(FileSetKeyValue, OwnerAndModeStayAndLinksAreCut)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "a=0\n"), soft = dir.path("soft"), hard = dir.path("hard");
    const bool root = geteuid() == 0;
    struct stat status;
    for (const mode_t mode : {0600U, 0400U, 04600U, 06770U, 01666U}) {
        ASSERT_EQ(chown(path.c_str(), root ? 1000 : geteuid(), root ? 1001 : getegid()), 0);
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        EXPECT_EQ(NLIBCFileSetKeyValue(path.c_str(), "a", "1", nullptr), 1);
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode);
        EXPECT_EQ(status.st_uid, root ? 1000 : geteuid());
        EXPECT_EQ(status.st_gid, root ? 1001 : getegid());
    }
    ASSERT_EQ(symlink("f", soft.c_str()), 0);
    ASSERT_EQ(link(path.c_str(), hard.c_str()), 0);
    EXPECT_EQ(NLIBCFileSetKeyValue(soft.c_str(), "a", "2", nullptr), 1);
    EXPECT_EQ(NLIBCFileSetKeyValue(hard.c_str(), "a", "3", nullptr), 1);
    EXPECT_EQ(dir.read("f") + dir.read("soft") + dir.read("hard"), "a=1\na=2\na=3\n");
}

// What cannot be opened for reading is made anew, whatever the reason.
TEST(FileSetKeyValue, NoReading)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "b=2\nc=3\n", 0222);
    ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
    in_child([&path] {
        EXPECT_TRUE(geteuid() != 0 || setuid(65534) == 0);
        EXPECT_EQ(NLIBCFileSetKeyValue(path.c_str(), "a", "1", nullptr), 1);
    });
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    EXPECT_EQ(dir.read("f"), "a=1\n");
    in_child([&path] {
        const rlimit none = {3, 3};
        setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_EQ(outcome(NLIBCFileSetKeyValue, path.c_str(), "a", "2", nullptr), (Outcome{-1, kErrOpen}));
    });
    EXPECT_EQ(dir.read("f"), "a=1\n") << "with no descriptor left the file is not touched";
}

// Two writers lose each other's settings, but whoever reads sees one of the complete versions.
TEST(FileSetKeyValue, TwoWritersAndAReader)
{
    const ScratchDir dir;
    const std::string middle = "# " + std::string(6000, '-') + "\n";
    const std::string path = dir.write("f", "a=0\n" + middle + "b=0\n");
    for (const char *key : {"a", "b"}) {
        if (fork() != 0)
            continue;
        int failed = 0;
        for (int round = 1; round <= 300; round++)
            failed += NLIBCFileSetKeyValue(path.c_str(), key, std::to_string(round).c_str(), nullptr) != 1;
        _exit(failed == 0 ? 0 : 1);
    }
    for (int status, running = 2; running > 0;) {
        const std::string text = dir.read("f"), a = "a=" + std::to_string(atoi(text.c_str() + 2)) + "\n" + middle;
        const std::string b = text.substr(std::min(a.size(), text.size()));
        ASSERT_EQ(text, a + "b=" + std::to_string(atoi(b.substr(std::min<size_t>(2, b.size())).c_str())) + "\n");
        if (waitpid(-1, &status, WNOHANG) > 0) {
            EXPECT_EQ(status, 0);
            running--;
        }
    }
    EXPECT_EQ(dir.names(), Names{"f"});
}

TEST(FileSection, Headers)
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
    EXPECT_EQ(outcome(NLIBCFileEnumSection, "/", list.address()), (Outcome{-1, kErrRead}));

    static constexpr struct {
        const char *line, *section;
        int length, result;
    } kLines[] = {
        {"[a] \t\v\f\r\n", "a", 9, 1}, {"[a]x", "a", 3, 1}, {"[a]x", "a", 4, 0},
        {"[a ]", "a", 4, 0},           {"[a]", "a", -2, 0}, {"[a]", nullptr, 3, -1},
    };
    for (const auto &row : kLines)
        EXPECT_EQ(NLIBCFileMatchSection(row.line, row.length, row.section), row.result) << &row - kLines;
}

TEST(FileSection, Pairs)
{
    static constexpr std::string_view kText = "a=0\n[one]\n a = \"1\" \n#c=2\n\nno pair\n=x\ne=\nf=g=h\na=2\n"
                                              "[broken\nx=1\n[one]\ny=1\n[] \nz=1\n[last]\nz\0=1\nl=1"sv;
    const ScratchDir dir;
    const std::string path = dir.write("f", kText);
    const struct {
        const char *section;
        std::map<std::string, std::string> pairs;
        int code;
    } cases[] = {
        {"one", {{"", "0"}, {"a", "2"}, {"#c", "2"}, {"e", ""}, {"f", "g=h"}}, kErrNone}, // any '[' ends it
        {"last", {{"", "0"}, {"l", "1"}}, kErrNone},
        {"broken", {{"", "0"}}, kErrSectionMissing},
    };
    for (const auto &row : cases) {
        UniqueHash hash(NLIBCSzHashAlloc(0));
        NLIBCSzHashSetValue(hash.address(), "", "0");
        NLIBCErrSet(kErrVendorData, "", 0); // a success takes it away
        EXPECT_EQ(NLIBCFileGetSection(path.c_str(), row.section, hash.address()), static_cast<int>(row.pairs.size()));
        EXPECT_EQ(NLIBCErrGet(), row.code) << row.section;
        EXPECT_EQ(pairs_of(hash.get()), row.pairs) << row.section;
    }
    EXPECT_EQ(outcome(NLIBCFileGetSection, path.c_str(), "one", nullptr), kBad);
}

TEST(FileSection, SetAndRemove)
{
    static constexpr struct {
        std::string_view before;
        const char *new_name, *format;
        int result;
        std::string_view set, removed; // the file after the one and the other
    } kCases[] = {
        {"a=0\n[s]\na=1\nb=2\n[t]\nc=3", nullptr, nullptr, 1, "a=0\n[s]\nk=v\n[t]\nc=3", "a=0\n[t]\nc=3"},
        {"[s]\n;one\na=1\n\n#two=2\n [t]\n[no\nx", "new", kConfFormat, 1, "[new]\nk=\"v\"\n;one\n#two=2\n",
         ";one\n#two=2\n"},
        {"[s]\na\n[t]\nb\n[s] \t\r\nc\n", "", nullptr, 1, "[]\nk=v\n[t]\nb\n[]\nk=v\n", "[t]\nb\n"},
        {"[s]\na\0b\n#c\0d\n[t]\0\n[t]\n\0x"sv, nullptr, nullptr, 1, "[s]\nk=v\n#c\0d\n[t]\n\0x"sv,
         "#c\0d\n[t]\n\0x"sv},
        {"[t]\na=1\n\0x"sv, "new", nullptr, 0, "[t]\na=1\n\0x"sv, "[t]\na=1\n\0x"sv},
    };
    const ScratchDir dir;
    UniqueHash hash(NLIBCSzHashAlloc(0));
    ASSERT_GE(NLIBCSzHashSetValue(hash.address(), "k", "v"), 0);
    for (const auto &row : kCases) {
        const std::string path = dir.write("f", row.before);
        EXPECT_EQ(outcome(NLIBCFileSetSection, path.c_str(), "s", row.new_name, hash.get(), row.format),
                  (Outcome{row.result, row.result == 1 ? kErrNone : kErrKeyMissing}));
        EXPECT_EQ(dir.read("f"), row.set) << row.before;
        dir.write("f", row.before);
        EXPECT_EQ(NLIBCFileRemoveSection(path.c_str(), "s"), row.result);
        EXPECT_EQ(dir.read("f"), row.removed) << row.before;
    }
    const std::string path = dir.write("f", "[s]\n"), missing = dir.path("missing");
    EXPECT_EQ(outcome(NLIBCFileSetSection, path.c_str(), "s", nullptr, nullptr, nullptr), kBad);
    EXPECT_EQ(outcome(NLIBCFileSetSection, path.c_str(), "s", nullptr, hash.get(), "%s=%s"), kBad);
    EXPECT_EQ(outcome(NLIBCFileRemoveSection, path.c_str(), nullptr), kBad);
    EXPECT_EQ(outcome(NLIBCFileSetSection, missing.c_str(), "s", nullptr, hash.get(), nullptr),
              (Outcome{-1, kErrOpen})); // nothing is made
    EXPECT_EQ(outcome(NLIBCFileRemoveSection, "/", "s"), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(dir.names(), Names{"f"});
    EXPECT_EQ(dir.read("f"), "[s]\n");
}

TEST(HashToFile, SlotOrderAndFormat)
{
    const ScratchDir dir;
    UniqueHash hash(NLIBCSzHashAlloc(0));
    for (const char *key : {"d", "c", "b", "a"}) // one-byte keys: their codes modulo 31 give the order
        ASSERT_GE(NLIBCSzHashSetValue(hash.address(), key, key), 0);
    ASSERT_NE(NLIBCSzHashRemove(hash.get(), "c"), nullptr);
    UniqueFile file(fopen(dir.path("f").c_str(), "we"));
    EXPECT_EQ(NLIBCHashToFile(file.get(), "s", hash.get(), nullptr), 0);
    EXPECT_EQ(NLIBCHashToFile(file.get(), nullptr, hash.get(), "<%s = '%s'>\n"), 0);
    EXPECT_EQ(NLIBCHashToFile(file.get(), "alone", nullptr, nullptr), 0);
    file.reset(fopen("/dev/full", "we"));
    EXPECT_EQ(dir.read("f"), "[s]\na=a\nb=b\nd=d\n<a = 'a'>\n<b = 'b'>\n<d = 'd'>\n[alone]\n");
    setvbuf(file.get(), nullptr, _IONBF, 0);
    for (const char *section : {"s", static_cast<const char *>(nullptr)})
        EXPECT_EQ(outcome(NLIBCHashToFile, file.get(), section, hash.get(), nullptr), (Outcome{-1, kErrWrite}));

    for (const char *format : {static_cast<const char *>(nullptr), kConfFormat, "x %s\t=\n'%s'; \n\n"})
        EXPECT_EQ(NLIBCFileCheckFormat(format), 1);
    for (const char *format : {"", "%s=%s", "%s%s=\n", "\n%s=%s", "%s=%d\n"})
        EXPECT_EQ(outcome(NLIBCFileCheckFormat, format), (Outcome{0, kErrBadFormat})) << format;
}

TEST(FileReadLines, Pieces)
{
    const ScratchDir dir;
    const std::string piece(1023, 'x');
    const std::string path = dir.write("f", "one\n\n" + piece + "\n" + piece.substr(1) + "\n" + piece + "end");
    UniqueList list(NLIBCSzListAlloc(0));
    EXPECT_EQ(NLIBCFileReadLines(path.c_str(), list.address()), 0);
    EXPECT_EQ(items_of(list.get()), (Names{"one\n", "\n", piece, "\n", piece.substr(1) + "\n", piece, "end"}));
    EXPECT_EQ(outcome(NLIBCFileReadLines, "/nowhere", list.address()), (Outcome{-1, kErrOpen}));
    EXPECT_EQ(outcome(NLIBCFileReadLines, "/", list.address()), (Outcome{-1, kErrRead}));
}

TEST(FileTouch, MakesOnlyWhatIsMissing)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "text");
    EXPECT_EQ(NLIBCFileTouch(path.c_str()), 0);
    EXPECT_EQ(dir.read("f"), "text");
    EXPECT_EQ(outcome(NLIBCFileTouch, "/"), (Outcome{-1, kErrOpen}));

    ASSERT_EQ(symlink("f", dir.path("link").c_str()), 0);
    EXPECT_TRUE(NLIBCFileIsRegular(dir.path("link").c_str()));
    EXPECT_FALSE(NLIBCFileIsRegular(dir.path().c_str()) || NLIBCFileIsRegular(nullptr));
}

} // namespace

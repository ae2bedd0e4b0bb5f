#include <cstring>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lib/file.h"
#include "lib/report.h"
#include "tests/support/in_child.h"
#include "tests/support/outcome.h"
#include "tests/support/scratch_dir.h"

using namespace std::string_view_literals;

namespace
{

using Names = std::vector<std::string>;

TEST(FileSetKeyValue, Texts)
{
    static constexpr struct {
        std::string_view before;
        const char *key, *value, *format;
        std::string_view after;
    } kCases[] = {
        {"", "a", "1", nullptr, "a=1\n"},
        {"b=2\n", "a", "1", nullptr, "b=2\na=1\n"},
        {"b=2", "a", "1", nullptr, "b=2\na=1\n"},
        {"b=2", "a", "1", kConfFormat, "b=2\na=\"1\"\n"},
        {"a=0\nb=2", "a", "1", nullptr, "a=1\nb=2"},
        {"b=2\na=0", "a", "1", nullptr, "b=2\na=1\n"},
        {"x\na=1\n# a\na=2\ny\na=3\n", "a", "new", nullptr, "x\na=new\n# a\ny\n"}, // three become one
        {" \t b =  1 \r\n#a=1\n;a\n\n[s]\n  a = \"0\"\n", "a", "1", nullptr, " \t b =  1 \r\n#a=1\n;a\n\n[s]\na=1\n"},
        {"foo\nbar\n", "foo", "1", nullptr, "foo=1\nbar\n"},
        {"[s]\n", "[s]", "1", nullptr, "[s]=1\n"},
        {"a=0\n", "a", "", nullptr, "a=\n"},
        {"a=0\n", "a", "%s %d %n \\n \\", kConfFormat, "a=\"%s %d %n \\n \\\"\n"},
        {"x", "a", "%s%s", nullptr, "x\na=%s%s\n"},
        {"a=0\n", "a", "1\nb=2", nullptr, "a=1\nb=2\n"}, // no escaping: the caller's care
        {"b=2\n", "a", "1", "%s:%s", "b=2\na:1"},        // the format is not looked at
        {"\0z\0\nb\0b=1\n\0"sv, "a", "1", nullptr, "\0z\0\nb\0b=1\n\0\na=1\n"sv},
        {"x\0a=2\na=0\nz\0"sv, "a", "1", nullptr, "x\0a=2\na=1\nz\0"sv},
    };
    const ScratchDir dir;
    for (const auto &row : kCases) {
        const std::string path = dir.write("f", row.before);
        EXPECT_EQ(NLIBCFileSetKeyValue(path.c_str(), row.key, row.value, row.format), 1) << row.before;
        EXPECT_EQ(dir.read("f"), row.after) << row.before;
        EXPECT_EQ(dir.names(), Names{"f"});
    }
}

TEST(FileSetKeyValue, LongLinesAndValues)
{
    const ScratchDir dir;
    const std::string line = "b=" + std::string(1 << 20, 'b') + "\n";
    const std::string value(1 << 20, '%');
    const std::string path = dir.write("f", line + "a=0\n" + line);
    EXPECT_EQ(NLIBCFileSetKeyValue(path.c_str(), "a", value.c_str(), nullptr), 1);
    EXPECT_EQ(dir.read("f"), line + "a=" + value + "\n" + line);
    EXPECT_EQ(NLIBCFileSetKeyValue(dir.path("new").c_str(), "a", value.c_str(), nullptr), 1);
    EXPECT_EQ(dir.read("new"), "a=" + value + "\n");
}

TEST(FileSetKeyValue, ArgumentsAndPlaces)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "b=2\n");
    // The path's length decides whether the name of the copy still fits.
    const auto long_path = [&dir](size_t length) {
        std::string text = dir.path() + "/";
        while (text.size() + 3 <= length)
            text += "./";
        return text + std::string(length - text.size(), 'f');
    };
    dir.write("ff", "b=2\n");
    const std::string longest = long_path(4088);
    const std::string too_long = long_path(4089);
    const std::string longest_format = std::string(4094 - strlen("%s=%s\n"), ' ') + "%s=%s\n";
    const std::string too_long_format = " " + longest_format;
    const struct {
        const char *file, *key, *value, *format;
        Outcome expected;
    } cases[] = {
        {nullptr, "a", "1", nullptr, {-1, kErrBadParameter}},
        {path.c_str(), nullptr, "1", nullptr, {-1, kErrBadParameter}},
        {path.c_str(), "a", nullptr, nullptr, {-1, kErrBadParameter}},
        {"/", "a", "1", nullptr, {-1, kErrOpen}},
        {"/no/where", "a", "1", nullptr, {-1, kErrOpen}},
        {path.c_str(), "a", "1", too_long_format.c_str(), {-1, kErrBufferTooSmall}},
        {path.c_str(), "b", "1", too_long_format.c_str(), {1}}, // only an appended line has this limit
        {path.c_str(), "a", "1", longest_format.c_str(), {1}},
        {longest.c_str(), "a", "1", nullptr, {1}},
        {too_long.c_str(), "a", "1", nullptr, {-1, kErrOpen}},
    };
    for (const auto &row : cases)
        EXPECT_EQ(outcome(NLIBCFileSetKeyValue, row.file, row.key, row.value, row.format), row.expected)
            << &row - cases;
    EXPECT_EQ(dir.names(), (Names{"f", "ff"}));
}

TEST(FileSetKeyValue, OwnerAndModeStay)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "a=0\n");
    const bool root = geteuid() == 0;
    for (const mode_t mode : {0600U, 0644U, 0400U, 04600U, 04751U, 06770U, 01666U}) {
        ASSERT_EQ(chown(path.c_str(), root ? 1000 : geteuid(), root ? 1001 : getegid()), 0);
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        EXPECT_EQ(NLIBCFileSetKeyValue(path.c_str(), "a", "1", nullptr), 1);
        struct stat status;
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode);
        EXPECT_EQ(status.st_uid, root ? 1000 : geteuid());
        EXPECT_EQ(status.st_gid, root ? 1001 : getegid());
    }
}

TEST(FileSetKeyValue, LinksAreCut)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "a=0\n");
    ASSERT_EQ(symlink("f", dir.path("soft").c_str()), 0);
    ASSERT_EQ(link(path.c_str(), dir.path("hard").c_str()), 0);
    EXPECT_EQ(NLIBCFileSetKeyValue(dir.path("soft").c_str(), "a", "1", nullptr), 1);
    EXPECT_EQ(NLIBCFileSetKeyValue(dir.path("hard").c_str(), "a", "2", nullptr), 1);
    EXPECT_EQ(dir.read("f") + dir.read("soft") + dir.read("hard"), "a=0\na=1\na=2\n");
    struct stat status;
    ASSERT_EQ(lstat(dir.path("soft").c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
}

// What cannot be opened for reading is made anew, whatever the reason.
TEST(FileSetKeyValue, NoReading)
{
    const ScratchDir dir;
    const std::string path = dir.write("f", "b=2\nc=3\n", 0222);
    ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
    EXPECT_EQ(in_child([&path] {
                  if (geteuid() == 0 && setuid(65534) != 0)
                      return -2;
                  return NLIBCFileSetKeyValue(path.c_str(), "a", "1", nullptr);
              }),
              1);
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    EXPECT_EQ(dir.read("f"), "a=1\n");
    EXPECT_EQ(in_child([&path] {
                  const rlimit none = {3, 3};
                  setrlimit(RLIMIT_NOFILE, &none);
                  const int result = NLIBCFileSetKeyValue(path.c_str(), "a", "2", nullptr);
                  EXPECT_EQ(NLIBCErrGet(), kErrOpen);
                  return result;
              }),
              -1);
    EXPECT_EQ(dir.read("f"), "a=1\n") << "with no descriptor left the file is not touched";
}

// Two writers lose each other's settings, but whoever reads sees one of the complete versions.
TEST(FileSetKeyValue, TwoWritersAndAReader)
{
    static constexpr int kRounds = 300;
    const ScratchDir dir;
    const std::string middle = "# " + std::string(6000, '-') + "\n";
    const std::string path = dir.write("f", "a=0\n" + middle + "b=0\n");
    pid_t writers[2];
    for (int i = 0; i < 2; i++) {
        writers[i] = fork();
        if (writers[i] != 0)
            continue;
        int failed = 0;
        for (int round = 1; round <= kRounds; round++)
            failed +=
                NLIBCFileSetKeyValue(path.c_str(), i == 0 ? "a" : "b", std::to_string(round).c_str(), nullptr) != 1;
        _exit(failed == 0 ? 0 : 1);
    }
    int reads = 0;
    for (int status, running = 2; running > 0; reads++) {
        const std::string text = dir.read("f");
        const size_t at = text.find(middle);
        ASSERT_NE(at, text.npos) << text.size();
        const std::string a = text.substr(0, at);
        const std::string b = text.substr(at + middle.size());
        ASSERT_EQ(a, "a=" + std::to_string(atoi(a.c_str() + 2)) + "\n");
        ASSERT_EQ(b, "b=" + std::to_string(atoi(b.c_str() + 2)) + "\n");
        char value[16];
        ASSERT_GT(NLIBCFileGetKeyValue(path.c_str(), "b", value, sizeof(value), 0), 1);
        if (waitpid(-1, &status, WNOHANG) > 0) {
            EXPECT_EQ(status, 0);
            running--;
        }
    }
    EXPECT_GT(reads, 10);
    EXPECT_EQ(dir.names(), Names{"f"});
}

} // namespace

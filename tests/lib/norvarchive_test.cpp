// Signed archives on a library that obeys the test.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "build_paths.h"
#include "lib/norvarchive.h"
#include "tests/support/alloc_fault.h"
#include "tests/support/private_root.h"

namespace
{

// Runs the body where the library answers as `settings` say, and expects these words of the log in this order.
template <typename Body> void expect_log(const char *settings, const Body &body, const std::vector<std::string> &words)
{
    ASSERT_NE(dlopen(FAKE_CODESIGN, RTLD_NOW), nullptr) << dlerror(); // has the name that is asked for later
    const PrivateRoot root;
    root.write("/etc/fake_codesign", settings);
    root.run(body);
    const std::string log = root.log();
    size_t at = 0;
    for (const std::string &word : words) {
        at = log.find(word, at);
        ASSERT_NE(at, std::string::npos) << word << " in\n" << log;
    }
}

TEST(NorvArchive, EachKindIsOpenedWithItsKey)
{
    const struct {
        NorvArchiveType type;
        const char *word, *dest;
        int key_type;
    } kRows[] = {{kNorvArchiveNano, "Nano", "/dest", 1}, // the system's is opened by a role
                 {kNorvArchiveSecurityJson, "SecurityJson", "/dev/null", 2},
                 {kNorvArchiveSmallPatch, "Small Patch", "/dest", 10}};
    for (const auto &row : kRows) // checked and closed: nobody wants the archive
        expect_log("", [&] { EXPECT_EQ(NorvArchiveOpen(row.type, "/a.pat", "/dest", nullptr), 0); },
                   {std::string("6 norvarchive.cpp:# norvinstall: norvarchive: [/a.pat][OPEN] Type: ") + row.word,
                    std::string("library init ") + row.dest, "library open /a.pat " + std::to_string(row.key_type),
                    "library free 1"});
}

TEST(NorvArchive, MembersAndNames)
{
    for (const bool is_listed : {true, false})
        expect_log(
            is_listed ? "" : "list 0 error 6",
            [is_listed] {
                UniqueNorvArchive archive;
                uint64_t count = 0;
                ASSERT_EQ(NorvArchiveOpenSystem("/a.pat", "/dest", archive.address()), 0);
                const std::string name(2500, 'n'); // two are more than a line tells
                const char *const two[] = {"a", "b", nullptr}, *three[] = {name.c_str(), two[0], name.c_str(), nullptr};
                EXPECT_EQ(NorvArchiveExtractMultiple(archive.get(), two), 0);
                EXPECT_EQ(NorvArchiveExtractMultiple(archive.get(), three), 0);
                const char *const *names = NorvArchiveGetFileList(archive.get(), &count);
                ASSERT_EQ(names != nullptr, is_listed);
                EXPECT_EQ(count, 2U);
                EXPECT_STREQ(is_listed ? names[1] : "hda1.tgz", "hda1.tgz");
            },
            {"[EXTRACT_MUL][2] List: a, b\n", "[EXTRACT_MUL][2] Start", "library multiple a 5", "[EXTRACT_MUL][2] End",
             "[EXTRACT_MUL][3] End", is_listed ? "" : "3 norvarchive.cpp:# Failed to get file list [/a.pat][6]",
             "[FREE] Start", "library free 1", "[FREE] End"});
}

TEST(NorvArchive, RefusalsKeepNothing)
{
    expect_log("extract 0 error 9", [] { EXPECT_EQ(NorvArchiveExtractSystemMember("/a.pat", "/dest", "VERSION"), 1); },
               {"library one VERSION 5", "[EXTRACT_ONE][VERSION] End: [Fail][9][0.", "library free 1"});
    for (const int nth : {1, 2})
        expect_log("",
                   [&] {
                       UniqueNorvArchive archive;
                       AllocFault fault(nth);
                       EXPECT_EQ(NorvArchiveOpenSystem("/a.pat", "/dest", archive.address()), 1);
                       EXPECT_TRUE(fault.struck());
                       EXPECT_EQ(fault.held(), 0);
                       EXPECT_FALSE(archive);
                   },
                   {nth == 1 ? "Failed to create strdup archive name [/a.pat]"
                             : "Failed to calloc NORVInstNorvArchive [Cannot allocate memory]",
                    "Failed to create NORVInstNorvArchive", "library free 1"});
    expect_log("", [] { EXPECT_EQ(NorvArchiveOpenSystem(nullptr, "/dest", nullptr), 1); },
               {"3 norvarchive.cpp:# Bad Parameters\n"});
}

} // namespace

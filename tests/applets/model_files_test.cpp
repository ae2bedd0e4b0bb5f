// norvcfgen and norvhdcfgen on a board that names no model.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace
{

const std::vector<std::string> kRoles[] = {{"norvcfgen"}, {"norvhdcfgen", "/disk"}};

void files_make(Sandbox &box)
{
    box.file("/etc/norvinfo.conf", "unique=\"kept\"\n");
    box.file("/disk/etc.defaults/norvinfo.conf", "unique=\"kept\"\n");
}

TEST(ModelFiles, BoardIsAskedAndNothingWritten)
{
    for (const std::vector<std::string> &words : kRoles) {
        SCOPED_TRACE(words[0]);
        Sandbox box;
        files_make(box);
        box.board_scenario("cpld 0x756e6974 0x1\n");
        const Result result = box.run(words);
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.record.text("board *"),
                  "board 0xc0044b0d cpld_first -> 0x756e6974\nboard 0xc0044b0e cpld_second -> 0x1\n");
        EXPECT_TRUE(result.files_changed.empty());
    }
}

TEST(ModelFiles, BoardRefuses)
{
    static constexpr struct {
        const char *scenario;
        int requests;
    } kCases[] = {{"fail cpld_first EIO\n", 1}, {"fail cpld_second EIO\n", 2}};
    for (const std::vector<std::string> &words : kRoles)
        for (const auto &[scenario, requests] : kCases) {
            SCOPED_TRACE(words[0] + ": " + scenario);
            Sandbox box;
            files_make(box);
            box.board_scenario(scenario);
            const Result result = box.run(words);
            EXPECT_EQ(result.exit_status, 255);
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.record.count("board *"), requests);
        }
}

TEST(ModelFiles, NoBoard)
{
    Sandbox box;
    box.board_remove();
    for (const std::vector<std::string> &words : kRoles)
        EXPECT_EQ(box.run(words).exit_status, 255) << words[0];
}

// One root path that is not empty, and not too long for the file below it; else the board is left alone.
TEST(ModelFiles, RootPath)
{
    const std::string kTail = "//etc.defaults/norvinfo.conf";
    const struct {
        std::vector<std::string> words;
        int exit_status;
    } kCases[] = {
        {{"norvhdcfgen"}, 255},
        {{"norvhdcfgen", ""}, 255},
        {{"norvhdcfgen", "/disk", "/disk"}, 255},
        {{"norvhdcfgen", std::string(4095 - kTail.size(), 'x')}, 255},
        {{"norvhdcfgen", std::string(4094 - kTail.size(), 'x')}, 0},
    };
    Sandbox box;
    for (const auto &[words, exit_status] : kCases) {
        const Result result = box.run(words);
        EXPECT_EQ(result.exit_status, exit_status);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.record.count("board *"), exit_status == 0 ? 2 : 0);
    }
}

} // namespace

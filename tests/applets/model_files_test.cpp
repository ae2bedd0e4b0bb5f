// norvcfgen and norvhdcfgen on a board that names no model.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/rows.h"

namespace
{

TEST(ModelFiles, BoardIsAskedAndNothingWritten)
{
    const std::string both = "board 0xc0044b0d cpld_first -> 0x756e6974\nboard 0xc0044b0e cpld_second -> 0x1\n";
    const struct {
        const char *scenario; // NULL: no board
        int exit_status, requests;
    } kCases[] = {{"cpld 0x756e6974 0x1\n", 0, 2},
                  {"fail cpld_first EIO\n", 255, 1},
                  {"fail cpld_second EIO\n", 255, 2},
                  {nullptr, 255, 0}};
    for (const char *role : {"norvcfgen", "norvhdcfgen /disk"})
        for (const auto &[scenario, exit_status, requests] : kCases) {
            SCOPED_TRACE(std::string(role) + ": " + (scenario == nullptr ? "no board" : scenario));
            Sandbox box;
            box.file("/etc/norvinfo.conf", "unique=\"kept\"\n");
            box.file("/disk/etc.defaults/norvinfo.conf", "unique=\"kept\"\n");
            if (scenario == nullptr)
                box.board_remove();
            else
                box.board_scenario(scenario);
            const Result result = box.run(words(role));
            EXPECT_EQ(result.exit_status, exit_status);
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.record.count("board *"), requests);
            EXPECT_TRUE(exit_status != 0 || result.record.text("board *") == both);
            EXPECT_TRUE(result.files_changed.empty());
        }
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

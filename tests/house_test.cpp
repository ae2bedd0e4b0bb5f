// Checks of the source tree itself.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <string>

#include "build_paths.h"
namespace
{

// The floor of each folder. A unit includes only what stands on its own floor or below it.
const std::map<std::string, int> kFloors = {
    {"product", 0}, {"lib", 1},     {"autocleanup", 1}, {"disk", 2},    {"net", 2},  {"external", 2},
    {"fan", 2},     {"storage", 3}, {"swap", 3},        {"zram", 3},    {"boot", 3}, {"manutil", 3},
    {"panel", 3},   {"install", 4}, {"findhost", 4},    {"applets", 5},
};

TEST(House, NoIncludeRunsUpwards)
{
    const std::filesystem::path root(NORV_SOURCE_DIR);
    const std::regex include_line("^\\s*#\\s*include\\s+\"([a-z_]+)/.*");
    int units = 0;
    for (const auto &[folder, floor] : kFloors) {
        if (!std::filesystem::exists(root / folder))
            continue;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(root / folder)) {
            const auto extension = entry.path().extension();
            if (extension != ".h" && extension != ".cpp")
                continue;
            units++;
            std::ifstream unit(entry.path());
            std::smatch match;
            for (std::string line; std::getline(unit, line);) {
                if (!std::regex_match(line, match, include_line))
                    continue;
                const auto included = kFloors.find(match[1]);
                ASSERT_NE(included, kFloors.end()) << entry.path() << ": " << line << ": no folder of the house";
                EXPECT_LE(included->second, floor) << entry.path() << ": " << line;
            }
        }
    }
    EXPECT_GT(units, 0);
}

// scripts/fuzz reads lines of that form, which a formatter that fills comments spoils.
TEST(House, EachFuzzEntrySaysWhatItCovers)
{
    const std::filesystem::path folder = std::filesystem::path(NORV_SOURCE_DIR) / "tests/fuzz";
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.path().string().ends_with("_fuzz.cpp"))
            continue;
        std::ifstream unit(entry.path());
        bool is_said = false;
        for (std::string line; !is_said && std::getline(unit, line);)
            is_said = line.starts_with("// Covers: ");
        EXPECT_TRUE(is_said) << entry.path();
    }
}

} // namespace

#include "tests/support/scratch_dir.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>

ScratchDir::ScratchDir() : path_(testing::TempDir() + "norv.XXXXXX")
{
    if (mkdtemp(path_.data()) == nullptr) {
        perror(path_.c_str());
        abort();
    }
}

ScratchDir::~ScratchDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string ScratchDir::path(std::string_view name) const
{
    return name.empty() ? path_ : path_ + "/" + std::string(name);
}

std::string ScratchDir::write(std::string_view name, std::string_view text, mode_t mode) const
{
    std::string target = path(name);
    std::filesystem::create_directories(std::filesystem::path(target).parent_path());
    std::ofstream(target, std::ios::binary) << text;
    EXPECT_EQ(chmod(target.c_str(), mode), 0) << target;
    return target;
}

std::string ScratchDir::read(std::string_view name) const
{
    std::ifstream stream(path(name), std::ios::binary);
    if (!stream)
        return "(none)";
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> ScratchDir::names() const
{
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator(path_))
        found.push_back(entry.path().filename());
    std::sort(found.begin(), found.end());
    return found;
}

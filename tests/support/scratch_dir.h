// A folder of its own for a test, removed with all it holds.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

class ScratchDir
{
  public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;

    // The path of `name`; the folder itself for "".
    [[nodiscard]] std::string path(std::string_view name = "") const;
    // Makes a file, and the folders above it. Returns its path.
    std::string write(std::string_view name, std::string_view text, mode_t mode = 0644) const;
    // What a file holds; "(none)" when it cannot be read.
    [[nodiscard]] std::string read(std::string_view name) const;
    // The names in the folder, sorted.
    [[nodiscard]] std::vector<std::string> names() const;

  private:
    std::string path_;
};

// What the probes of a system share: its folder .system_info, and its model's name.
#pragma once

#include <span>
#include <string_view>

struct SystemInfo {
    char path[512]; // of the file that was asked
    char line[64];  // its first line, without the newline
};

// Reads <root>/.system_info/<name>. Returns false, with the path, when it cannot be read.
[[nodiscard]] bool system_info_read(const char *root, const char *name, SystemInfo *out);

// The same as a decimal number above 0; -1 when it is none.
[[nodiscard]] int system_info_number(const char *root, const char *name);

// Whether a model's name begins with one of the words.
[[nodiscard]] bool model_begins(std::string_view model, std::span<const std::string_view> words);

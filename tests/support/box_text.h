// Text forms that tests and the record share.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Whether the whole text fits the pattern, in which '*' stands for any text.
[[nodiscard]] bool pattern_matches(std::string_view pattern, std::string_view text);

// A word as the record shows it: as it is, or in '...' when it is empty or has blanks, quotes or '*'.
[[nodiscard]] std::string word_shown(std::string_view word);
[[nodiscard]] std::string words_shown(const std::vector<std::string> &words); // with blanks between

// One line: newlines and other control characters as \n, \r, \t or \xNN.
[[nodiscard]] std::string line_shown(std::string_view text);

// How a line of the record ends whose call failed: " = ENOENT".
[[nodiscard]] std::string error_shown(int error);

// All that is still to be read.
[[nodiscard]] std::string descriptor_read(int fd);

// The words of NUL-terminated texts in a row.
[[nodiscard]] std::vector<std::string> words_split(std::string_view texts);

// The lines of a text in memory, and what they hold. Shared by the operations of lib/file.h.
#pragma once

#include <string_view>

struct KeyLine {
    std::string_view key;   // trimmed
    std::string_view value; // trimmed; may be empty when quoted
    bool has_value;         // false without '=', and when only white space follows it
};

// Splits a line, with or without its LF, at its first '='. Like any reader of C strings it sees nothing behind a NUL.
[[nodiscard]] KeyLine key_line_split(std::string_view line);

// Whether the line is a line of `key` and no comment.
[[nodiscard]] bool key_line_matches(std::string_view line, std::string_view key);

// Cuts the first line, with its LF if it has one, off `*text` and returns it; empty at the end of the text.
std::string_view line_next(std::string_view *text);
// The same up to the first line of `key`, which is returned; without one all of the text goes.
std::string_view key_line_next(std::string_view *text, std::string_view key);

// Whether a line begins with '[' and its last byte that isspace does not know is ']'.
[[nodiscard]] bool line_is_section_header(std::string_view line);
// Whether it is the header of the section `name`: nothing but white space after the bracket.
[[nodiscard]] bool line_is_section(std::string_view line, std::string_view name);
// Whether the first byte of a line makes it a comment.
[[nodiscard]] constexpr bool line_is_comment(std::string_view line)
{
    return line.starts_with('#') || line.starts_with(';');
}

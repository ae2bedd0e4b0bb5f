// Fixed text fields of records, and trimming. A field that is full to the last byte has no NUL, hence text_view.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

// Puts `text` into the field whole and clears the rest. Returns false, the field unchanged, when it does not fit with
// its NUL.
template <size_t kRoom> [[nodiscard]] bool text_set(char (&field)[kRoom], std::string_view text)
{
    if (text.size() >= kRoom)
        return false;
    char whole[kRoom] = {};
    text.copy(whole, kRoom);
    memcpy(field, whole, kRoom);
    return true;
}

// Puts as much of `text` into the field as leaves room for the NUL, and clears the rest.
template <size_t kRoom> void text_cut(char (&field)[kRoom], std::string_view text)
{
    char whole[kRoom] = {};
    text.copy(whole, kRoom - 1);
    memcpy(field, whole, kRoom);
}

// The text of a field: up to its first NUL, or all of it.
template <size_t kRoom> [[nodiscard]] std::string_view text_view(const char (&field)[kRoom])
{
    return {field, strnlen(field, kRoom)};
}

// The text without the TAB, LF, CR and space at its ends. VT and FF are no white space here.
[[nodiscard]] inline std::string_view text_strip(std::string_view text)
{
    constexpr std::string_view kWhite = "\t\n\r ";
    const size_t first = text.find_first_not_of(kWhite);
    return first == text.npos ? text.substr(0, 0) : text.substr(first, text.find_last_not_of(kWhite) + 1 - first);
}

// The stripped text without the one pair of double quotes around it. A lone quote is no pair.
[[nodiscard]] inline std::string_view text_trim(std::string_view text)
{
    text = text_strip(text);
    const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return quoted ? text.substr(1, text.size() - 2) : text;
}

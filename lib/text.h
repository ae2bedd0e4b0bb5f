// Fixed text fields of records; trimming; the words and the number in a text. A field that is full to the last byte has
// no NUL, hence text_view.
#pragma once

#include <charconv>
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

// TAB, LF, CR and space: what is trimmed. VT and FF are not.
[[nodiscard]] constexpr bool text_is_white(char c)
{
    return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

// The text without the white space at its ends.
[[nodiscard]] constexpr std::string_view text_strip(std::string_view text)
{
    while (!text.empty() && text_is_white(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && text_is_white(text.back()))
        text.remove_suffix(1);
    return text;
}

// The stripped text without the one pair of double quotes around it. A lone quote is no pair.
[[nodiscard]] constexpr std::string_view text_trim(std::string_view text)
{
    text = text_strip(text);
    const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return quoted ? text.substr(1, text.size() - 2) : text;
}

// Cuts the next word off the text: what stands between characters of `blanks`. Empty when there is none.
[[nodiscard]] std::string_view text_word_take(std::string_view *text, std::string_view blanks);

// Reads the whole of a text as one number, as std::from_chars does: no blank, no plus, no prefix. False when it is none
// or does not fit; `*number` is then of no use.
template <typename Number> [[nodiscard]] bool text_number(std::string_view text, Number *number, int base = 10)
{
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, *number, base);
    return error == std::errc() && stop == end;
}

#include "lib/file_line.h"

#include <cctype>
#include <cstring>

#include "lib/text.h"

KeyLine key_line_split(std::string_view line)
{
    line = line.substr(0, line.find('\0'));
    const size_t start = line.find_first_not_of('='); // "=a" has the key a
    if (start == line.npos)
        return {"", "", false};
    const size_t equals = line.find('=', start);
    const std::string_view key = text_trim(line.substr(start, equals - start));
    const std::string_view value = equals == line.npos ? "" : text_strip(line.substr(equals + 1));
    return {key, text_trim(value), !value.empty()};
}

bool key_line_matches(std::string_view line, std::string_view key)
{
    return !line_is_comment(line) && key_line_split(line).key == key;
}

std::string_view line_next(std::string_view *text)
{
    const size_t end = text->find('\n');
    const std::string_view line = text->substr(0, end == text->npos ? end : end + 1);
    text->remove_prefix(line.size());
    return line;
}

std::string_view key_line_next(std::string_view *text, std::string_view key)
{
    // A line of the key has the key's bytes in it: only lines that do are looked at closely.
    while (!text->empty()) {
        const void *hit = memmem(text->data(), text->size(), key.data(), key.size());
        if (hit == nullptr)
            break;
        const size_t at = static_cast<size_t>(static_cast<const char *>(hit) - text->data());
        text->remove_prefix(text->substr(0, at).rfind('\n') + 1); // npos + 1 is 0
        const std::string_view line = line_next(text);
        if (key_line_matches(line, key))
            return line;
    }
    text->remove_prefix(text->size());
    return *text;
}

static std::string_view without_space_at_end(std::string_view line)
{
    while (!line.empty() && isspace(static_cast<unsigned char>(line.back())) != 0)
        line.remove_suffix(1);
    return line;
}

bool line_is_section_header(std::string_view line)
{
    return line.starts_with('[') && without_space_at_end(line).ends_with(']');
}

bool line_is_section(std::string_view line, std::string_view name)
{
    line = without_space_at_end(line);
    return line.size() == name.size() + 2 && line.front() == '[' && line.back() == ']' &&
           line.substr(1, name.size()) == name;
}

#include "tests/support/box_text.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "tests/support/sandbox.h"

bool pattern_matches(std::string_view pattern, std::string_view text)
{
    size_t at = 0;
    size_t star = std::string_view::npos; // the last one met, and where its text would end next
    size_t star_end = 0;
    for (size_t i = 0; i < text.size();) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            star_end = i;
        } else if (at < pattern.size() && pattern[at] == text[i]) {
            at++;
            i++;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            i = ++star_end;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

std::string line_shown(std::string_view text)
{
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char escape[8];
        if (c == '\n') {
            shown += "\\n";
        } else if (c == '\r') {
            shown += "\\r";
        } else if (c == '\t') {
            shown += "\\t";
        } else if (byte < 0x20 || byte == 0x7f) {
            snprintf(escape, sizeof(escape), "\\x%02x", byte);
            shown += escape;
        } else {
            shown += c;
        }
    }
    return shown;
}

std::string word_shown(std::string_view word)
{
    const bool plain = !word.empty() && word.find_first_of(" '\"*") == std::string_view::npos;
    return plain ? line_shown(word) : "'" + line_shown(word) + "'";
}

std::string words_shown(const std::vector<std::string> &words)
{
    std::string shown;
    for (const std::string &word : words)
        shown += (shown.empty() ? "" : " ") + word_shown(word);
    return shown;
}

std::string error_shown(int error)
{
    return std::string(" = ") + strerrorname_np(error);
}

std::string descriptor_read(int fd)
{
    std::string content;
    char piece[16384];
    for (ssize_t count; (count = read(fd, piece, sizeof(piece))) > 0;)
        content.append(piece, static_cast<size_t>(count));
    return content;
}

std::vector<std::string> words_split(std::string_view texts)
{
    std::vector<std::string> words;
    while (!texts.empty()) {
        const auto end = texts.find('\0');
        words.emplace_back(texts.substr(0, end));
        texts.remove_prefix(end == std::string_view::npos ? texts.size() : end + 1);
    }
    return words;
}

testing::AssertionResult Record::in_order(const std::vector<std::string> &patterns) const
{
    size_t line = 0;
    for (const std::string &pattern : patterns) {
        while (line < lines.size() && !pattern_matches(pattern, lines[line]))
            line++;
        if (line == lines.size())
            return testing::AssertionFailure() << "not in the record, or not in this order: " << pattern << "\n"
                                               << text();
        line++;
    }
    return testing::AssertionSuccess();
}

int Record::count(std::string_view pattern) const
{
    int matches = 0;
    for (const std::string &line : lines)
        matches += pattern_matches(pattern, line) ? 1 : 0;
    return matches;
}

std::string Record::text(std::string_view pattern) const
{
    std::string found;
    for (const std::string &line : lines)
        if (pattern_matches(pattern, line))
            found += line + "\n";
    return found;
}

std::string Result::log_text() const
{
    std::string texts;
    for (const LogLine &line : log)
        texts += line.text + "\n";
    return texts;
}

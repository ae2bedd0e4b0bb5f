// Key-value files. The input's first three lines are a key, a value and a section, the rest is the file; one that
// begins with kLongMark has more in front than one read takes, one that begins with kWideMark a header too long.
// Covers: lib/file_get_key_value.cpp lib/file_set_key_value.cpp lib/file_line.cpp lib/file_line_key_match.cpp
// Covers: lib/file_match_section.cpp lib/file_get_section.cpp lib/file_set_section.cpp lib/file_enum_section.cpp
#include <algorithm>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

#include "autocleanup/unique.h"
#include "lib/file.h"
#include "lib/text.h"
#include "tests/fuzz/fuzz.h"

namespace
{

constexpr std::string_view kLongMark = "#long\n", kWideMark = "[wide]\n";

std::string file_path()
{
    const char *folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return std::string(folder) + "/key_value_fuzz." + std::to_string(getpid());
}

void file_put(const std::string &path, std::string_view text)
{
    const UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    check(write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), "no memory file");
}

std::string file_take(const std::string &path)
{
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text(65536, '\0'); // more than the longest
    const ssize_t size = read(fd.get(), text.data(), text.size());
    check(size >= 0, "the file is gone");
    text.resize(static_cast<size_t>(size));
    return text;
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size(); at += lines.back().size()) {
        const size_t end = text.find('\n', at);
        lines.push_back(text.substr(at, end == text.npos ? end : end + 1 - at));
    }
    return lines;
}

// The value as the plain walk over all lines finds it; "(none)" without one.
std::string value_expected(const std::string &text, const char *key)
{
    for (const std::string &line : lines_of(text)) {
        if (!NLIBCFileLineKeyMatch(line.c_str(), key))
            continue;
        const std::string_view seen = line.c_str();
        const size_t start = std::min(seen.find_first_not_of('='), seen.size());
        const size_t equals = seen.find('=', start);
        const std::string_view value = equals == seen.npos ? "" : text_strip(seen.substr(equals + 1));
        return value.empty() ? "(none)" : std::string(text_trim(value));
    }
    return "(none)";
}

std::string value_read(const std::string &path, const char *key)
{
    char value[4096];
    const int length = NLIBCFileGetKeyValue(path.c_str(), key, value, sizeof(value), 0);
    check(length >= 0, "a value that does not fit");
    char one;
    check(NLIBCFileGetKeyValue(path.c_str(), key, &one, 1, 0) == (length > 1 ? -1 : length), "a value in no room");
    return length == 0 ? "(none)" : value;
}

// The lines that a set of `key` must keep. A missing LF at the end may be added.
std::string lines_kept(const std::string &text, const char *key)
{
    std::string kept;
    for (const std::string &line : lines_of(text))
        if (!NLIBCFileLineKeyMatch(line.c_str(), key))
            kept += line;
    return kept.empty() || kept.ends_with('\n') ? kept : kept + '\n';
}

void key_check(const std::string &path, const std::string &text, const char *key, const char *value)
{
    check(value_read(path, key) == value_expected(text, key), "get differs from the plain walk");
    check(NLIBCFileSetKeyValue(path.c_str(), key, value, nullptr) == 1, "set failed");
    const std::string after = file_take(path);
    const std::string_view name = key;
    const bool plain =
        !name.empty() && text_trim(name) == name && name.find('=') == name.npos && name[0] != '#' && name[0] != ';';
    if (!plain)
        return; // the new line is no line of its key
    check(lines_kept(after, key) == lines_kept(text, key), "set changed another line");
    const auto lines = lines_of(after);
    check(std::count(lines.begin(), lines.end(), std::string(key) + "=" + value + "\n") == 1, "not one new line");
    if (*value != '\0' && text_trim(value) == value)
        check(value_read(path, key) == value, "get does not read what set wrote");
}

void section_check(const std::string &path, const std::string &text, const char *section)
{
    check(NLIBCFileMatchSection(text.data(), -1, section) == 0, "a section in nothing");
    const auto lines = lines_of(text);
    const bool present = std::any_of(lines.begin(), lines.end(), [section](const std::string &line) {
        return NLIBCFileMatchSection(line.data(), static_cast<int>(line.size()), section) == 1;
    });
    UniqueList names(NLIBCSzListAlloc(0));
    UniqueHash pairs(NLIBCSzHashAlloc(0));
    const bool is_wide = std::any_of(lines.begin(), lines.end(), [](const std::string &line) {
        return line[0] == '[' && line.size() >= 1024; // no header is as long as that
    });
    const int listed = NLIBCFileEnumSection(path.c_str(), names.address());
    check(listed >= 0 || is_wide, "enum failed");
    if (listed < 0)
        return;
    if (present && *section != '\0') // a find passes over empty items
        check(NLIBCSzListFind(names.get(), section) >= 0, "enum misses a section that is there");
    check(NLIBCFileGetSection(path.c_str(), section, pairs.address()) == NLIBCSzHashPairNum(pairs.get()),
          "get section failed");

    NLIBCSzHashClear(pairs.get());
    check(NLIBCSzHashSetValue(pairs.address(), "k", "v") >= 0, "no memory");
    check(NLIBCFileSetSection(path.c_str(), section, nullptr, pairs.get(), nullptr) == (present ? 1 : 0),
          "set section sees other sections");
    if (!present) {
        check(file_take(path) == text, "a section that is not there changed the file");
        return;
    }
    NLIBCSzHashClear(pairs.get());
    check(NLIBCFileGetSection(path.c_str(), section, pairs.address()) >= 1, "the new section is gone");
    const char *value = NLIBCSzHashGetValue(pairs.get(), "k");
    check(value != nullptr && std::string_view(value) == "v", "get section does not read what set section wrote");
    check(NLIBCFileRemoveSection(path.c_str(), section) == 1, "remove does not see the section");
    check(NLIBCFileRemoveSection(path.c_str(), section) == 0, "the section stays");
}

// A file that is not there is made, its folder is not.
void missing_check(const std::string &path, const char *key, const char *value)
{
    UniqueList names(NLIBCSzListAlloc(0));
    check(NLIBCFileGetKeyValue(path.c_str(), key, nullptr, 0, 0) == -1, "a value of no file");
    check(NLIBCFileEnumSection(path.c_str(), names.address()) == -1, "sections of no file");
    check(NLIBCFileSetKeyValue((path + "/none").c_str(), key, value, nullptr) == -1, "a file in no folder");
    check(NLIBCFileSetKeyValue(path.c_str(), key, value, nullptr) == 1, "set makes no file");
    check(file_take(path) == std::string(key) + "=" + value + "\n", "a new file with more than its line");
    unlink(path.c_str());
}

} // namespace

void fuzz_one(std::string_view input)
{
    static const std::string path = file_path();
    if (input.size() > 4000) // so that every value and header fits
        return;
    std::string words[3];
    for (std::string &word : words)
        word = text_take(&input, '\n');
    std::string text(input.substr(0, 1000));
    if (text.starts_with(kLongMark))
        text.insert(0, std::string(20000, '#') + "\n");
    if (text.starts_with(kWideMark))
        text.insert(1, std::string(1100, 'w'));
    file_put(path, text);
    section_check(path, text, words[2].c_str());
    file_put(path, text);
    key_check(path, text, words[0].c_str(), words[1].c_str());
    unlink(path.c_str());
    missing_check(path, words[0].c_str(), words[1].c_str());
}

// The text operations against plain models. Input: up to three texts with a NUL behind each; the sizes follow from
// them.
// Covers: lib/string_split.cpp lib/string_sep_pair.cpp lib/string_trim_space.cpp lib/string_replace.cpp
#include <algorithm>
#include <vector>

#include "autocleanup/unique.h"
#include "lib/string.h"
#include "tests/fuzz/fuzz.h"

namespace
{

// `text` in a block of just its size, so that a sanitizer sees a byte too many.
struct Copy {
    std::vector<char> bytes;
    explicit Copy(std::string_view text, size_t room = 0) : bytes(std::max(room, text.size() + 1))
    {
        std::copy(text.begin(), text.end(), bytes.begin());
    }
    char *get() { return bytes.data(); }
};

std::string trimmed(const std::string &text)
{
    static constexpr char kSpace[] = "\t\n\r ";
    const size_t begin = text.find_first_not_of(kSpace);
    if (begin == std::string::npos)
        return "";
    const std::string inner = text.substr(begin, text.find_last_not_of(kSpace) + 1 - begin);
    const bool quoted = inner.size() >= 2 && inner.front() == '"' && inner.back() == '"';
    return quoted ? inner.substr(1, inner.size() - 2) : inner;
}

void check_split(const std::string &text, const std::string &delims)
{
    std::vector<std::string> fields(1);
    for (const char c : text) {
        if (delims.find(c) == std::string::npos)
            fields.back() += c;
        else
            fields.emplace_back();
    }
    for (const bool keep_empty : {true, false}) {
        if (!keep_empty)
            std::erase(fields, "");
        UniqueList list(NLIBCSzListAlloc(0));
        const int pushed = (keep_empty ? NLIBCStrSep : NLIBCStrTok)(text.c_str(), delims.c_str(), list.address());
        check(pushed == static_cast<int>(fields.size()) && pushed == list.get()->nItem);
        for (int i = 0; i < pushed; i++)
            check(list.get()->items[i] == fields[static_cast<size_t>(i)]);
    }
}

void check_pair(const std::string &line)
{
    UniqueList list(NLIBCSzListAlloc(0));
    const size_t equal = line.find('=');
    const std::string key = equal == std::string::npos ? "" : trimmed(line.substr(0, equal));
    check(NLIBCStrSepPair(line.c_str(), list.address()) == (key.empty() ? -1 : 0));
    check(list.get()->nItem == (key.empty() ? 0 : 2));
    if (!key.empty())
        check(list.get()->items[0] == key && list.get()->items[1] == trimmed(line.substr(equal + 1)));
}

void check_trim(const std::string &text)
{
    const std::string expected = trimmed(text);
    Copy in_place(text), apart(expected);
    check(NLIBCStrTrimSpace(in_place.get(), apart.get()) == static_cast<int>(expected.size()));
    check(apart.get() == expected);
    check(NLIBCStrTrimSpace(in_place.get(), nullptr) == static_cast<int>(expected.size()));
    check(in_place.get() == expected);
}

void check_replace(const std::string &text, const std::string &from, const std::string &to)
{
    const size_t at = text.find(from);
    const std::string expected = at == std::string::npos ? text : std::string(text).replace(at, from.size(), to);
    const size_t room = std::max(expected.size(), text.size()) + 1;
    for (const bool fits : {true, false}) {
        const int size = static_cast<int>(expected.size()) + (fits ? 1 : 0);
        const int result = at == std::string::npos ? 0 : fits ? 1 : -1;
        Copy in_place(text, room), apart("", expected.size() + 1);
        check(NLIBCStrReplace(in_place.get(), from.c_str(), to.c_str(), apart.get(), size) == result);
        check(in_place.get() == text && apart.get() == (result == 1 ? expected : ""));
        check(NLIBCStrReplace(in_place.get(), from.c_str(), to.c_str(), nullptr, size) == result);
        check(in_place.get() == (result == 1 ? expected : text));
    }
}

} // namespace

void fuzz_one(std::string_view input)
{
    const std::string one = text_take(&input, '\0'), two = text_take(&input, '\0'), three = text_take(&input, '\0');
    check_split(one, two);
    check_pair(one);
    check_trim(one);
    check_replace(one, two, three);
}

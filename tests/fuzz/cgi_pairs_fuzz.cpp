// The pairs of a request against a plain model. The first byte tells whether "+" stays, the rest is the text.
// Covers: install/cgi_param.cpp(cgi_pairs_load)
#include <cctype>
#include <map>

#include "autocleanup/unique.h"
#include "install/cgi_param.h"
#include "tests/fuzz/fuzz.h"

namespace
{

// What a value becomes: decoded up to a bad escape, from where what lay in the buffer shows.
std::string decoded(const std::string &raw, bool keep_plus)
{
    std::string value;
    for (size_t at = 0; at < raw.size(); at++) {
        if (raw[at] != '%') {
            value += raw[at] == '+' && !keep_plus ? ' ' : raw[at];
            continue;
        }
        if (at + 2 >= raw.size() || isxdigit(static_cast<unsigned char>(raw[at + 1])) == 0 ||
            isxdigit(static_cast<unsigned char>(raw[at + 2])) == 0) {
            value += raw.substr(value.size());
            break;
        }
        value += static_cast<char>(strtol(raw.substr(at + 1, 2).c_str(), nullptr, 16));
        at += 2;
    }
    return value.c_str();
}

std::map<std::string, std::string> model(std::string rest, bool keep_plus)
{
    std::map<std::string, std::string> values;
    for (size_t equals; (equals = rest.find('=')) != rest.npos;) {
        const size_t end = rest.find('&', equals);
        values[rest.substr(0, equals)] = decoded(rest.substr(equals + 1, end - equals - 1), keep_plus);
        if (end == rest.npos)
            break;
        rest.erase(0, end + 1);
    }
    return values;
}

} // namespace

void fuzz_one(std::string_view input)
{
    const bool keep_plus = byte_take(&input) % 2 == 0;
    const UniqueText text(strndup(input.data(), input.size())); // of exactly its size
    const auto expected = model(text.get(), keep_plus);
    UniqueHash params(NLIBCSzHashAlloc(0));
    cgi_pairs_load(text.get(), keep_plus, params.address());
    check(NLIBCSzHashPairNum(params.get()) == static_cast<int>(expected.size()), "another number of pairs");
    for (const auto &[name, value] : expected) {
        const char *found = NLIBCSzHashGetValue(params.get(), name.c_str());
        check(found != nullptr && value == found, "another value");
    }
}

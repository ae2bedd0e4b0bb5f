// The pairs of a request. The first byte tells whether "+" stays, the rest is the text.
// Covers: install/cgi_param.cpp(cgi_pairs_load)
#include <algorithm>

#include "autocleanup/unique.h"
#include "install/cgi_param.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    const bool keep_plus = byte_take(&input) % 2 == 0;
    const UniqueText text(strndup(input.data(), input.size())); // of exactly its size
    const std::string before = text.get();
    UniqueHash params(NLIBCSzHashAlloc(0));
    cgi_pairs_load(text.get(), keep_plus, params.address());
    const auto pairs = pairs_of(params.get());
    check(static_cast<std::ptrdiff_t>(pairs.size()) <= std::count(before.begin(), before.end(), '='), "a pair of none");
    for (const auto &[name, value] : pairs) {
        const size_t at = before.find(name + "=");
        check(at == 0 || (at != before.npos && before.find("&" + name + "=") != before.npos), "another name");
        check(name.size() + 1 + value.size() <= before.size(), "more than was there");
        if (before.find_first_of("%+") == before.npos)
            check(before.find(name + "=" + value) != before.npos, "another value");
    }
}

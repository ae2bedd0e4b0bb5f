// What every entry shares: it defines fuzz_one, and fuzz_begin when there is something to prepare.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "tests/support/containers.h"

// One input. It stands in a block of just its size, so that a sanitizer sees a byte too many.
void fuzz_one(std::string_view input);
// Once, before the first input.
[[gnu::weak]] void fuzz_begin();

// Ends the process, and tells where, when something does not hold.
inline void check(bool holds, const char *what = "", const char *file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (holds)
        return;
    fprintf(stderr, "%s:%d does not hold %s\n", file, line, what);
    abort();
}

template <size_t kRoom> void check_ended(const char (&field)[kRoom])
{
    check(strnlen(field, kRoom) < kRoom, "a text without an end");
}

inline std::span<const uint8_t> bytes_of(std::string_view text)
{
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

// Takes the first byte off an input; 0 when there is none.
inline uint8_t byte_take(std::string_view *input)
{
    const uint8_t first = input->empty() ? uint8_t{0} : bytes_of(*input)[0];
    input->remove_prefix(input->empty() ? 0 : 1);
    return first;
}

// Takes the text up to the first `end` off an input, and the end with it.
inline std::string text_take(std::string_view *input, char end)
{
    std::string text(input->substr(0, input->find(end)));
    input->remove_prefix(text.size() < input->size() ? text.size() + 1 : text.size());
    return text;
}

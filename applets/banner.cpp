#include "applets/banner.h"

#include <cstdio>
#include <cstring>

#include "lib/text.h"
#include "product.h"

namespace
{

// Words that do not stand readable in the executable: each byte has its bits turned over.
template <size_t kRoom> struct Scrambled {
    char bytes[kRoom] = {};

    consteval explicit Scrambled(const char (&words)[kRoom])
    {
        for (size_t i = 0; i < kRoom; i++)
            bytes[i] = static_cast<char>(~words[i]);
    }
};

// Volatile, or the compiler would turn them back.
const volatile Scrambled kLead(kProductBannerLead);
const volatile Scrambled kTail(kProductBannerTail);

template <size_t kRoom> void scrambled_print(const volatile Scrambled<kRoom> &words)
{
    for (size_t i = 0; i + 1 < kRoom; i++) // all but the NUL
        putchar(static_cast<unsigned char>(~words.bytes[i]));
}

} // namespace

void banner_print(const char *date)
{
    char words[16];
    text_cut(words, date);
    const char *space = strrchr(words, ' ');
    if (space == nullptr)
        return;
    scrambled_print(kLead);
    fputs(space + 1, stdout);
    scrambled_print(kTail);
    putchar('\n');
}

bool help_is_asked(int argc, char *argv[])
{
    return argc == 2 && strcmp(argv[1], "--help") == 0;
}

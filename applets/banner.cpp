#include "applets/banner.h"

#include <cstdio>
#include <cstring>

#include "lib/text.h"
#include "product.h"

void banner_print(const char *date)
{
    char words[16];
    text_cut(words, date);
    const char *space = strrchr(words, ' ');
    if (space != nullptr)
        printf("%s%s%s\n", kProductBannerLead, space + 1, kProductBannerTail);
}

bool help_is_asked(int argc, char *argv[])
{
    return argc == 2 && strcmp(argv[1], "--help") == 0;
}

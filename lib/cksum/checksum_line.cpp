#include "lib/cksum/checksum_line.h"

#include "lib/text.h"

static constexpr std::string_view kTrailerWord = "Norvcksum";

std::string_view word_next(std::string_view *text)
{
    return text_word_take(text, " \t\n");
}

bool checksum_line_parse(std::string_view text, ChecksumLine *out)
{
    char offset[16], spot[16];
    return text_set(out->crc, word_next(&text)) && text_set(out->size, word_next(&text)) &&
           text_set(out->path, word_next(&text)) && text_set(offset, word_next(&text)) &&
           text_set(spot, word_next(&text)) && word_next(&text).empty() && out->path[0] != '\0' &&
           text_number(out->size, &out->size_bytes) && text_number(offset, &out->offset) &&
           text_number(spot, &out->spot);
}

bool checksum_trailer_matches(std::string_view text, const ChecksumTotals &totals)
{
    if (!text.starts_with('#'))
        return false;
    text.remove_prefix(1);
    if (word_next(&text) != kTrailerWord)
        return false;
    for (const long long total : {totals.sizes, totals.offsets, totals.spots}) {
        long long said = 0;
        if (!text_number(word_next(&text), &said) || said != total)
            return false;
    }
    return word_next(&text).empty();
}

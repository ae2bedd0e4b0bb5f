#include "lib/cksum/checksum_line.h"

#include <algorithm>
#include <charconv>

#include "lib/text.h"

static constexpr std::string_view kBetweenWords = " \t";
static constexpr std::string_view kTrailerWord = "Norvcksum";

std::string_view word_next(std::string_view *text)
{
    std::string_view rest = *text;
    if (rest.ends_with('\n'))
        rest.remove_suffix(1);
    rest.remove_prefix(std::min(rest.find_first_not_of(kBetweenWords), rest.size()));
    const std::string_view word = rest.substr(0, rest.find_first_of(kBetweenWords));
    *text = rest.substr(word.size());
    return word;
}

static bool number_parse(std::string_view word, long long *out)
{
    const char *end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, *out);
    return error == std::errc() && stop == end;
}

bool checksum_line_parse(std::string_view text, ChecksumLine *out)
{
    char offset[16], spot[16];
    return text_set(out->crc, word_next(&text)) && text_set(out->size, word_next(&text)) &&
           text_set(out->path, word_next(&text)) && text_set(offset, word_next(&text)) &&
           text_set(spot, word_next(&text)) && word_next(&text).empty() && out->path[0] != '\0' &&
           number_parse(out->size, &out->size_bytes) && number_parse(offset, &out->offset) &&
           number_parse(spot, &out->spot);
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
        if (!number_parse(word_next(&text), &said) || said != total)
            return false;
    }
    return word_next(&text).empty();
}

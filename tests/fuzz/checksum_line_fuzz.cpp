// A line of a checksum list, as the data line and as the last one. A data line that is accepted has five fields, which
// alone make the same line; a last line is accepted for no other totals than it tells.
// Covers: lib/cksum/checksum_line.cpp lib/text_word_take.cpp
#include <climits>

#include "lib/cksum/checksum_line.h"
#include "tests/fuzz/fuzz.h"

namespace
{

void check_data(std::string_view text)
{
    ChecksumLine line, again;
    if (!checksum_line_parse(text, &line))
        return;
    for (const char *field : {line.crc, line.size, line.path})
        check(field[0] != '\0' && strpbrk(field, " \t") == nullptr);
    char plain[kChecksumLineBytes + 1];
    snprintf(plain, sizeof(plain), "%s\t%s %s %lld %lld\n", line.crc, line.size, line.path, line.offset, line.spot);
    check(checksum_line_parse(plain, &again));
    check(strcmp(line.crc, again.crc) == 0 && strcmp(line.size, again.size) == 0);
    check(strcmp(line.path, again.path) == 0 && line.size_bytes == again.size_bytes);
    check(line.offset == again.offset && line.spot == again.spot);
}

void check_last(std::string_view text)
{
    static constexpr ChecksumTotals kTotals = {1, 5, 6, 420};
    static constexpr ChecksumTotals kOthers[] = {{1, 6, 6, 420}, {1, 5, 5, 420}, {1, 5, 6, LLONG_MAX}};
    if (!checksum_trailer_matches(text, kTotals))
        return;
    check(text.find("Norvcksum") != std::string_view::npos);
    for (const ChecksumTotals &others : kOthers)
        check(!checksum_trailer_matches(text, others));
}

} // namespace

void fuzz_one(std::string_view input)
{
    const std::string_view line = input.substr(0, input.find('\0')); // it is read as a text
    check_data(line);
    check_last(line);
}

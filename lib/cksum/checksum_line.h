// The lines of a checksum list.
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr size_t kChecksumLineBytes = 511; // longest line

struct ChecksumLine {
    char crc[16], size[16]; // as the tool prints them
    char path[256];         // below the folder
    long long size_bytes, offset, spot;
};

struct ChecksumTotals {
    long long lines, sizes, offsets, spots; // lines: those that were good
};

// Cuts the first word, between blanks and tabs, off `*text` and returns it; empty at the end of the line.
[[nodiscard]] std::string_view word_next(std::string_view *text);

// Takes a data line, with or without its newline, apart. Returns false when it has not five fields of fitting width, or
// numbers that are none.
[[nodiscard]] bool checksum_line_parse(std::string_view text, ChecksumLine *out);

// Whether the line is the list's last, with these totals.
[[nodiscard]] bool checksum_trailer_matches(std::string_view text, const ChecksumTotals &totals);

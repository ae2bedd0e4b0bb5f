// Splitting, trimming, bounded formatting, numbers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/list.h"

// Splits `s` at any byte of `delims` and pushes the tokens that are not empty. Returns the number pushed; -1 with
// 0x0d00 on a bad argument, 0x0200 without memory, none pushed. `s` may be an item of the list.
int NLIBCStrTok(const char *s, const char *delims, PNLIBSZLIST *list);

// The same, keeping empty fields.
int NLIBCStrSep(const char *s, const char *delims, PNLIBSZLIST *list);

// Splits a line at its first '=' and pushes trimmed key and trimmed value. Returns 0; -1 with 0x0d00 when there is no
// '=' or no key, 0x0200 without memory, neither pushed.
int NLIBCStrSepPair(const char *line, PNLIBSZLIST *list);

// Removes TAB, LF, CR and space from both ends, then one pair of double quotes around what is left.
//   dst  where the result goes, with its NUL; NULL or `s` for in place; nowhere else between its first byte and its NUL
// Returns the length of the result; -1 with 0x0d00.
int NLIBCStrTrimSpace(char *s, char *dst);

// snprintf that counts truncation as a failure. Returns the characters written; -1 with 0x0d00 on a bad argument,
// 0x8100 when formatting failed, 0xfb00 when the text with its NUL did not fit: `buf` then holds the cut text. The
// first and the last are logged, errno is as before.
int NLIBCStrSnprintf(char *buf, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

// Appends `s` to the allocated text `*buf` of `*cbAlloc` bytes, growing both; `*buf` NULL starts a new one of at least
// 1024 zeroed bytes. `s` NULL or empty changes nothing; it may point into `*buf`. The caller frees. Returns 0; -1 with
// 0x0d00 or 0x0200, the buffer unchanged.
int NLIBCStrCat(char **buf, int *cbAlloc, const char *s);

// Replaces the first occurrence of `from` by `to`, neither of them a part of `s`.
//   dst   room for `size` bytes with the NUL, written only on 1; NULL for in place, where `size` is the room of `s`
// Returns 1 replaced, 0 not found, -1 on a bad argument (0x0d00) or too little room (0x0100).
int NLIBCStrReplace(char *s, const char *from, const char *to, char *dst, int size);

// Reads a number: hexadecimal behind "0x" or "0X", else decimal. False when anything else is in it, or it does not fit.
[[nodiscard]] bool ParseNumber(const char *text, uint32_t *value);

// Text files of key=value lines, some with [section] blocks, and a few questions about files.
//
// A line is a comment when its first byte is '#' or ';'. Key and value are trimmed as NLIBCStrTrimSpace does; a line
// without '=' is all key. The two plain key operations see no sections. No operation takes a lock: a reader sees the
// file before or after a rewrite, never between; of two writers the last one wins.
#pragma once

#include <cstdio>

#include "lib/hash.h"
#include "lib/list.h"

inline constexpr char kDefaultsPath[] = "/etc.defaults/norvinfo.conf"; // model description, read-only
inline constexpr char kConfPath[] = "/etc/norvinfo.conf";              // working copy
inline constexpr char kDefaultFormat[] = "%s=%s\n";                    // how lines are written when no format is given
inline constexpr char kConfFormat[] = "%s=\"%s\"\n";                   // how lines of kConfPath are written

inline constexpr int kEmptyValue = 1; // length of what stands between two quotes with nothing in them: the NUL

// Reads one value of a key-value file.
//   file, key  NUL-terminated; keys compare exactly
//   buf        room for `size` bytes with the NUL; NULL with size 0 asks for the length
//   flags      bit 0: the last occurrence wins, else the first
// Returns the length in bytes with the NUL; 0 when missing or empty (0x2000), `buf` untouched; -1 on a bad argument
// (0x0d00), a file that cannot be opened (0x0900), too little room (0x0100) or no memory (0x0200). A file that cannot
// be read on ends there, as a folder does at once. When the last occurrence wins, `buf` may hold an earlier value that
// fits, and an occurrence without a value ends the copying but not the counting.
[[nodiscard]] int NLIBCFileGetKeyValue(const char *file, const char *key, char *buf, int size, int flags);

// Sets one value: the first matching line is replaced, later ones are dropped, a missing one is appended.
//   format  takes key and value as two %s; NULL for "%s=%s\n"
// An existing file is replaced as a whole by a synced copy with its owner and mode; a link to it is cut. A file that
// cannot be opened for reading, for whatever reason, is created in place. Nothing is escaped: a value with a newline
// makes two lines. Returns 1; -1 with 0x0d00, 0x0900, 0x0b00, 0x2700 or 0x2800, 0x0200 without memory, 0x0100 when a
// format of 4094 bytes or more, a newline before it counted, is to append a line.
[[nodiscard]] int NLIBCFileSetKeyValue(const char *file, const char *key, const char *value, const char *format);

// Whether the value equals `expected`, ignoring case. Returns 1 or 0; `fallback` when the key is missing; 0 when the
// file cannot be read or the value has 512 bytes or more.
[[nodiscard]] int NLIBCFileCheckKeyValue(const char *file, const char *key, const char *expected, int fallback);

// Whether `line` is a line of `key`. False with 0x0d00 on NULL.
[[nodiscard]] bool NLIBCFileLineKeyMatch(const char *line, const char *key);

// Pushes the names of all section headers. Returns the number of items in the list; -1 with 0x0d00, 0x0900, 0x0a00,
// 0x0200, or 0x0100 at a header of 1024 bytes or more.
int NLIBCFileEnumSection(const char *file, PNLIBSZLIST *list);

// Puts the pairs of a section into the hash, comments with a '=' among them. Returns the number of pairs in the hash,
// with code 0; the same with 0x2200 when there is no such section; -1 with 0x0d00, 0x0900, 0x0a00 or 0x0200.
int NLIBCFileGetSection(const char *file, const char *section, PNLIBSZHASH *hash);

// Replaces a section by the pairs of `hash` under `new_name` (NULL: the old one); comments inside it stay.
// Returns 1 replaced; 0 with 0x2000 no such section, the file rewritten as it was; -1 with 0x0d00, 0x0900, 0x0a00,
// 0x0b00, 0x2700, 0x2800, 0x0200, or 0x2400 when the quota is spent.
[[nodiscard]] int NLIBCFileSetSection(const char *file, const char *section, const char *new_name, PNLIBSZHASH hash,
                                      const char *format);
// Removes a section but for its comments. Results as above.
[[nodiscard]] int NLIBCFileRemoveSection(const char *file, const char *section);

// Whether a line of `length` bytes is the header of `section`. Returns 1 or 0; -1 with 0x0d00 on NULL.
[[nodiscard]] int NLIBCFileMatchSection(const char *line, int length, const char *section);

// Writes "[section]" unless it is NULL, then each pair in slot order. Returns 0; -1 with 0x0d00 or 0x0b00.
[[nodiscard]] int NLIBCHashToFile(FILE *fp, const char *section, const NLIBSZHASH *hash, const char *format);

// Whether a format has %s, '=', %s and LF in this order, or is NULL. Returns 1; 0 with 0x4000.
[[nodiscard]] int NLIBCFileCheckFormat(const char *format);

// Pushes the file's lines with their newlines; a line of 1024 bytes or more becomes several items. Returns 0; -1 with
// 0x0d00, 0x0900, 0x0a00 or 0x0200.
[[nodiscard]] int NLIBCFileReadLines(const char *file, PNLIBSZLIST *list);

// Makes an empty file unless a regular one is there. Returns 0; -1 with 0x0d00 or 0x0900.
[[nodiscard]] int NLIBCFileTouch(const char *path);

// Whether stat says a regular file; false for NULL too.
[[nodiscard]] bool NLIBCFileIsRegular(const char *path);
// Whether stat says a block device.
[[nodiscard]] bool file_is_block_device(const char *path);

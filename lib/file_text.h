// A whole file in memory. Shared by the operations of lib/file.h.
#pragma once

#include <cstddef>
#include <string_view>

#include "autocleanup/unique.h"

struct FileText {
    UniqueText bytes; // from malloc
    size_t size = 0;  // bytes read
    size_t room = 0;  // bytes allocated

    [[nodiscard]] std::string_view view() const { return {bytes.get(), size}; }
};

// Makes room for so many bytes in all. Returns false without memory, the text unchanged.
[[nodiscard]] bool file_text_grow(FileText *text, size_t room);

// Reads on until `room` bytes are in `bytes` or the file ends; `*size` counts them.
// Returns 0; -1 with no code when it cannot be read: what came before that stays.
[[nodiscard]] int file_read_on(int fd, char *bytes, size_t room, size_t *size);

// Reads all that is left of a file into an empty `text`, behind a copy of `begun`, and puts a NUL behind it.
//   expected_bytes  what the file may have in all; only saves growing
// Returns 0; -1 with 0x0200, or with 0x0a00 when it cannot be read: what came before that stays.
[[nodiscard]] int file_text_read(int fd, std::string_view begun, size_t expected_bytes, FileText *text);

// The same for a file by its path. Returns 0; -1 with 0x0900, 0x0a00 or 0x0200.
[[nodiscard]] int file_text_load(const char *path, FileText *text);

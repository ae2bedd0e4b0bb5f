// Replacing the whole text of a file that others read at any moment: they see the old text or the new one, never a
// part. To change some lines of a file that keeps its owner and mode there is lib/file_rewrite.h.
#pragma once

#include <string_view>
#include <sys/types.h>

#include "autocleanup/unique.h"

inline void unique_unlink(const char *path)
{
    unlink(path);
}
using UniqueFileName = Unique<const char *, nullptr, unique_unlink>; // a file that goes with its owner

// Formats the text into a file of mode 0644, less the umask, beside `path`, "<path>.<pid>", and gives it that name.
// Returns 0; -1 with 0x0900, 0x0b00 or 0x2800 and errno, the old file as it was and the other one removed.
[[nodiscard]] int file_replace(const char *path, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The same for settings, which outlive a power cut: the text is on the disk before it takes the name.
//   temp_path  the file beside; NULL: as above
[[nodiscard]] int file_replace_synced(const char *temp_path, const char *path, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// Makes a file of these bytes, on the disk when this returns. What was in it goes.
//   folder  descriptor that a relative path begins at, or AT_FDCWD
// Returns 0; -1 with 0x0900 or 0x0b00 and errno: the file may be there then, and is to be removed.
[[nodiscard]] int file_write_synced(int folder, const char *path, std::string_view bytes, mode_t mode);

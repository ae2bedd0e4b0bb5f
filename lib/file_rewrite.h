// Replacing a file by a synced copy beside it, so that a crash leaves the old file or the complete new one. Shared by
// the writing operations of lib/file.h.
#pragma once

#include <climits>
#include <cstddef>
#include <sys/stat.h>

#include "lib/file_replace.h"
#include "lib/file_text.h"

// What differs between the operations.
struct RewriteRules {
    int read_error;    // code when the old text cannot be read
    int quota_error;   // code when the copy cannot be finished for want of quota
    bool owner_always; // owner and mode are set even where they agree
};

// A rewrite under way. The copy is closed and its name removed at scope exit, whatever became of it.
struct Rewrite {
    FileText old_text;
    char copy_path[PATH_MAX];
    UniqueFileName copy_name;
    UniqueText buffer; // holds all of the copy, so that it is written at once
    UniqueFile copy;   // where the new text goes
    struct stat old_status, copy_status;
};

// Makes the copy of the file that is open for reading as `source`, empty, and reads the old text.
//   added_bytes  how much longer the new text can be; more is written in pieces
// Returns 0; -1 with 0x2700, 0x0900, 0x0200 or the rules' read error.
[[nodiscard]] int rewrite_begin(Rewrite *rewrite, int source, const char *file, size_t added_bytes,
                                const RewriteRules &rules);

// Syncs the copy, gives it the old owner and mode and puts it in place. Returns 0; -1 with 0x0b00, the rules' quota
// error or 0x2800.
[[nodiscard]] int rewrite_commit(Rewrite *rewrite, const char *file, const RewriteRules &rules);

// Writes patches.
#pragma once

#include <string>
#include <vector>

#include "tools/norv-patch/checksum_list.h"

// What may be wrong with a patch on purpose.
enum class PatchFault {
    kNone,
    kUnsigned,  // no signature
    kSignature, // one that is not of this patch
    kStranger,  // one by a key that nobody knows
    kTruncated, // the last quarter is missing
    kPayload,   // one byte is changed
    kExtraFile, // a file more than was signed
    kEscape,    // a member that would lie outside
    kAbsolute,  // one with an absolute name
    kLink,      // a symbolic link
    kDevice,    // a device
};

struct PatchPlan {
    std::string folder, path, key_folder;
    bool is_old_form = false; // a tar that bears the folder's signature, instead of a signed archive
    int key_type = 0;
    ListFault list_fault = ListFault::kNone;
    PatchFault fault = PatchFault::kNone;
};

// Makes a patch of a folder; its checksum list, and with the old form its signature, are written into it. False, told
// on standard error, when that fails: then there is no patch.
[[nodiscard]] bool patch_write(const PatchPlan &plan);

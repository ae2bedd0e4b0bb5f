// Makes the checksum list of a folder.
#pragma once

#include <string>

// What may be wrong with a list on purpose.
enum class ListFault { kNone, kChecksum, kTotals, kNoTotals, kMissingFile };

// Writes <folder>/checksum.norv, which names every file and link below the folder but itself and a signature. False,
// told on standard error, when that fails.
[[nodiscard]] bool checksum_list_write(const std::string &folder, ListFault fault);

// Checks a folder against its list as the appliance does, but without its checksum program. Returns NULL when all is as
// listed, else what is wrong.
[[nodiscard]] const char *checksum_list_verify(const std::string &folder);

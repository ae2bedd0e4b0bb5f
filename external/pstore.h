// Records that the kernel left of a crash.
#pragma once

inline constexpr int kPstoreCollectionsMax = 16;

// Copies every record of /sys/fs/pstore/ to a folder of its own below /var/log/pstore/, named after the time, and
// removes each source once its copy is whole on the disk. Keeps the newest kPstoreCollectionsMax folders.
// Returns the number of records copied, 0 when there were none; -1 when a record could not be copied (0x0900, 0x0b00,
// 0x2800), which then stays where it was.
[[nodiscard]] int pstore_collect();

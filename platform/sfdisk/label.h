// Labels on disk: the MS-DOS partition table, and the GUID partition table of UEFI.
#pragma once

#include "platform/sfdisk/disk.h"
#include "platform/sfdisk/table.h"

// Reads what label there is. A disk without one is no fault: kind kNone. kDamaged: a GPT of which neither copy is
// whole.
[[nodiscard]] Fault label_read(const Disk &disk, PartitionTable *table);
// Writes the label and waits until it is on the medium. A power cut on the way leaves the old label or the new one.
[[nodiscard]] Fault label_write(const Disk &disk, const PartitionTable &table);
// Removes every trace of a label.
[[nodiscard]] Fault label_erase(const Disk &disk);

// One label kind each; `table` has disk_sectors and sector0 set.
[[nodiscard]] Fault dos_read(const Disk &disk, PartitionTable *table);
[[nodiscard]] Fault dos_write(const Disk &disk, const PartitionTable &table);
void dos_clear(PartitionTable *table);     // an empty label with the old boot code
void dos_entry_make(Partition *partition); // fills `entry`
[[nodiscard]] bool dos_is_label(const uint8_t *sector0);

[[nodiscard]] Fault gpt_read(const Disk &disk, PartitionTable *table);
[[nodiscard]] Fault gpt_write(const Disk &disk, const PartitionTable &table);
[[nodiscard]] Fault gpt_erase(const Disk &disk);         // both headers, where they are
void gpt_clear(PartitionTable *table);                   // an empty label
[[nodiscard]] bool gpt_entry_make(Partition *partition); // fills `entry`; false: a type that has no GUID here
[[nodiscard]] bool gpt_is_announced(const uint8_t *sector0);
[[nodiscard]] uint64_t gpt_last_usable(const PartitionTable &table); // sector

// The root block: a record on the raw disk, outside of any partition, that tells the disk's layout and which systems
// may use it. One copy stands near the start of the disk, one near its end. All integers are big-endian.
#pragma once

#include <cstdint>

#include "autocleanup/unique.h"
#include "storage/partition_layout.h"

inline constexpr uint64_t kRootBlockHeaderAt = 256000;     // bytes from the start of the disk
inline constexpr uint64_t kRootBlockBodyAt = 262144;       // as written; read where the header says
inline constexpr uint64_t kRootBlockBackupHeader = 512000; // bytes before the end of the disk
inline constexpr uint64_t kRootBlockBackupBody = 505856;   // the same
inline constexpr uint32_t kRootBlockVersion = 3;           // the newest body

// Bits of the capability: which systems may use the disk.
inline constexpr uint32_t kCapabilityShared = 1;   // those whose root is not on an isolated disk
inline constexpr uint32_t kCapabilityIsolated = 2; // those with `root_on_isolated_disk`

// Whether a system that has one of these may use a disk of this capability: when all its bits are the system's.
[[nodiscard]] constexpr bool capability_fits(uint32_t capability, uint32_t system)
{
    return (capability & ~system) == 0;
}

// What a block carries. A member is NULL when its body has none; the block owns them.
struct RootBlock {
    PartitionLayout *layout;
    uint32_t *extraVersion;
    uint32_t *capability;
};
// An empty block; NULL with 0x0200. Freed with what it owns; NULL is allowed.
[[nodiscard]] RootBlock *root_block_alloc();
void root_block_free(RootBlock *block);
using UniqueRootBlock = Unique<RootBlock *, nullptr, root_block_free>;

// Reads the block of a disk or of the disk of a partition: the primary copy, or the backup when the primary has no
// valid header.
//   block  NULL on entry; the caller frees it
// Returns the copy read, 1 or 2; 0 when there is none, with an empty block; -1 with 0x0d00, 0x2a00, 0x0900, 0x0a00,
// 0x0200 or 0x8100, without a block.
[[nodiscard]] int root_block_get(const char *disk, RootBlock **block);

// Writes the block, which must have a capability, as the newest version: the primary copy, then the backup where no
// partition lies. Returns 0 when the primary is written; -1 with 0x0d00, 0xd900 when its place is taken, 0x0900,
// 0x0b00 or 0x0200.
[[nodiscard]] int root_block_set(const char *disk, const RootBlock *block);

// Sets the capability in memory. Returns 0; -1 with 0x0d00 or 0x0200.
[[nodiscard]] int root_block_update_capability(uint32_t capability, RootBlock *block);

// Whether this system may use a disk with the block: true also for one without a capability.
[[nodiscard]] bool root_block_is_compatible(const RootBlock *block);

enum RootBlockVerdict : int {
    kRootBlockCompatible = 1,
    kRootBlockUnknown = 0, // no block, or one without a capability
    kRootBlockIncompatible = -1,
    kRootBlockError = -2,
};
// The same of a disk.
[[nodiscard]] RootBlockVerdict root_block_is_compatible(const char *disk);

// Byte offset that lies `from_end` bytes before the end of a disk: kRootBlockBackupHeader or kRootBlockBackupBody.
// Returns 1; 0 when the disk is too small to have it or is a plain file, whose size is not asked for; -1 with 0x0d00,
// or what disk_size_get leaves.
[[nodiscard]] int root_block_backup_offset_get(const char *disk, uint64_t from_end, uint64_t *offset);

// Whether a byte offset lies behind all partitions, or before the first one with 500 sectors to spare where that one
// starts at sector 2048 or later. False also when the partitions cannot be told.
[[nodiscard]] bool is_disk_offset_avail(const char *disk, uint64_t offset);
// The same of the backup header's place; a warning is logged when it is taken.
[[nodiscard]] bool is_disk_offset_avail(const char *disk);

// One copy of the root block on an open disk.
#pragma once

#include <climits>
#include <cstdlib>

#include "lib/report.h"
#include "storage/root_block_format.h"

enum RootBlockCopy : int { kRootBlockPrimary = 1, kRootBlockBackup = 2 };

struct RootBlockOpInfo {
    UniqueFd fd;
    char path[PATH_MAX];
    uint64_t offset;  // of the body, bytes from the start of the disk
    uint32_t version; // of the body, 1 to kRootBlockVersion
};

// What the partitions of a disk take up, in sectors; without partitions as it begins.
struct PartitionsTaken {
    uint64_t lowest_start = UINT64_MAX;
    uint64_t highest_end = 0;

    void add(const PartitionExtent &extent); // an end beyond all sectors counts as the last
};
// Whether a byte offset is free of them, as is_disk_offset_avail says.
[[nodiscard]] bool root_block_place_is_free(const PartitionsTaken &taken, uint64_t offset);

// Whether is_disk_offset_avail says that a place is free: 1; 0; -1 with 0x0200, when for want of memory nobody knows.
[[nodiscard]] int root_block_place_check(const char *disk, uint64_t offset);

// Where the header of a copy stands. Returns 1; 0 when the disk is too small to have it; -1.
[[nodiscard]] int root_block_header_offset_get(const char *disk, int copy, uint64_t *offset);

// Reads the header at byte `offset` of an open disk. Returns 1; 0 when it is not valid; -1 as of root_fields_read.
[[nodiscard]] int root_block_header_read(int fd, uint64_t offset, RootHeader *header);

// Prepares a handle; one that is open already is used on.
//   disk   not a partition
//   given  version and offset to use; NULL: as the header tells, or where it is not valid the newest version and its
//          usual place
// Returns 1 when the header is valid; 0 otherwise and with `given`; -1 with 0x0d00, 0x0900, 0x0a00 or what
// disk_size_get leaves.
[[nodiscard]] int root_block_op_info_get(const char *disk, const RootHeader *given, int copy, RootBlockOpInfo *info);

// The operations on the body of a handle. `block` is empty before it is read; what it then lacks is NULL. A version
// without a member leaves it out of the writing; a member that is NULL is written as zeros, but for the capability.
// Return 0; -1 as of the two of root_block_format.h, 0x0200.
[[nodiscard]] int root_block_read(const RootBlockOpInfo &info, RootBlock *block);
[[nodiscard]] int root_block_write(const RootBlockOpInfo &info, const RootBlock *block);
[[nodiscard]] int root_block_clean(const RootBlockOpInfo &info); // writes zeros; the header stays

// Stores a copy of `value` that the block owns, in a new member where there is none. Returns 0; -1 with 0x0200.
template <typename Value> [[nodiscard]] int root_block_member_set(Value **member, const Value &value)
{
    if (*member == nullptr)
        *member = static_cast<Value *>(malloc(sizeof(Value)));
    if (*member == nullptr)
        return fail(kErrOutOfMemory);
    **member = value;
    return 0;
}

// The super block of a disk that has served in an installed system, and its list of caches. It is only ever read.
#pragma once

#include <cstdint>

#include "autocleanup/unique.h"
#include "lib/list.h"

inline constexpr int64_t kSpaceBlockOffset = 0x7d000;      // partition 1 begins at sector 2048 or later
inline constexpr int64_t kSpaceBlockOldOffset = 0x5000;    // it begins earlier
inline constexpr uint32_t kSpaceTypeCache = 8;             // bit of spaceType: the disk holds cache data
inline constexpr uint32_t kSpaceTypeUnchecked = 4;         // spaceType whose two cache lists need not agree
inline constexpr uint32_t kBlockCacheFreshMode = 3;        // mode of a new record; of no cache at all in version 5
inline constexpr uint32_t kBlockRaidsMax = 1024;           // RAID identifiers on disk
inline constexpr uint32_t kBlockCachesMax = 1024;          // cache records on disk
inline constexpr char kRaidGroupUnknown[] = "NORV_UNKNOW"; // stands for any limit but the known ones

// One cache. Texts end with a NUL.
struct BlockCache {
    char id[64]; // the list's key
    uint32_t mode;
    uint64_t size;
    uint32_t flagA, flagB, flagC; // 0 or 1
    uint32_t count;               // at least 1
    BlockCache *next;
};

// Texts end with a NUL; what the version on disk lacks is empty.
struct NORVBlock {
    char magic[64];
    uint32_t version; // the newest on the disk; kSpaceBlockNewVersion in an empty record
    uint32_t capability, feature;
    uint32_t spaceType;
    char spacePath[256], text1[128], text2[256], text3[256];
    uint32_t raidMark, lvmMark;
    char lvmText1[128], lvmText2[256];
    uint32_t lvmValue;
    PNLIBSZLIST raidList;
    char raidGroupLimit[16];
    BlockCache *cacheInfo;
};
inline constexpr uint32_t kSpaceBlockNewVersion = 6;

// A zeroed record with an empty raidList. NULL with 0x0200, logged.
[[nodiscard]] NORVBlock *space_block_alloc();
void space_block_free(NORVBlock *block); // with its lists; NULL is allowed
// Empties a record; its raidList keeps its room.
void space_block_reset(NORVBlock *block);
using UniqueSpaceBlock = Unique<NORVBlock *, nullptr, space_block_free>;

// The readers fill `block`, which space_block_alloc made and which may hold an earlier disk's. They open the disk
// read-only and never write. Result 1: a block was read; 0: none there, the record is empty; -1, logged: 0x0d00 on a
// bad argument or a disk of no known class or of the boot class, 0x0900, 0x0a00, 0x4000 on a block that breaks its
// format, 0x0200. After -1 the record is empty.

// Reads the block at byte `offset` of a disk.
[[nodiscard]] int space_disk_block_get(const char *disk, int64_t offset, NORVBlock *block);
// Reads the block of the disk of a partition, at the place that the start of partition 1 tells. 0 without partition 1.
[[nodiscard]] int space_disk_block_get(const char *partition, NORVBlock *block);
// Reads the block of the disk of a partition at one of the two places; another offset is a bad argument.
[[nodiscard]] int space_disk_block_get_at(const char *partition, int64_t offset, NORVBlock *block);
// Whether the disk of a partition has a block: 1 or 0; -1 as above. Without partition 1 it looks at kSpaceBlockOffset.
[[nodiscard]] int space_disk_block_exists(const char *partition);

// The place that partition 1 tells when it begins at `start` sectors.
[[nodiscard]] constexpr int64_t space_block_offset(uint64_t start)
{
    return start >= 2048 ? kSpaceBlockOffset : kSpaceBlockOldOffset;
}

// What the readers do once the disk is open. Results as theirs, of an open descriptor, which may be a file's.
//   name  of the disk, for the log
[[nodiscard]] int space_block_read(int fd, const char *name, int64_t offset, NORVBlock *block);

// Lists of caches. An append or a walk takes a NULL list as an empty one.

// A record with kBlockCacheFreshMode and count 1, all else empty. NULL with 0x0200.
[[nodiscard]] BlockCache *space_block_cache_alloc();
void space_block_cache_free(BlockCache *list); // all of it
using UniqueBlockCache = Unique<BlockCache *, nullptr, space_block_cache_free>;
// The first record of this id; NULL, with no code, when there is none.
[[nodiscard]] BlockCache *space_block_cache_find(BlockCache *list, const char *id);
// Takes the first record of this id out and frees it. Returns 0; -1 with 0x2000 when there is none, 0x0d00.
[[nodiscard]] int space_block_cache_remove(BlockCache **list, const char *id);
// Puts `tail`, a record or a list, behind the last record of `list`, which owns it from then on.
void space_block_cache_append(BlockCache **list, BlockCache *tail);
// Copies one record but for its place in a list.
void space_block_cache_copy(BlockCache *to, const BlockCache *from);
// Overwrites the record of the same id in the block's list, or appends a copy. Returns 0; -1 with 0x0200, 0x0d00.
[[nodiscard]] int space_block_cache_info_add(NORVBlock *block, const BlockCache *record);
// A copy of a whole list. NULL for the empty list, and with 0x0200, nothing kept.
[[nodiscard]] BlockCache *space_block_cache_clone(const BlockCache *list);
[[nodiscard]] int space_block_cache_count(const BlockCache *list);

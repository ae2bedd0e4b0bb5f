// The super block's bytes: what stands where in each version, and how it is taken from the disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "storage/space_block.h"

// A field of a block on disk. Fields follow each other without padding.
struct SpaceField {
    uint32_t since;      // first version that has it
    size_t disk_bytes;   // a number has 4 or 8, a text more
    size_t memory_bytes; // what a text has more on disk is dropped
    size_t member;       // byte offset in the record
};
#define SPACE_FIELD(since, disk_bytes, Record, name)                                                                   \
    {                                                                                                                  \
        since, disk_bytes, sizeof(Record::name), offsetof(Record, name)                                                \
    }

struct SpaceCache { // a cache as it stands on disk
    char id[sizeof(BlockCache::id)];
    uint32_t mode;
    uint64_t size;
    uint32_t flags;
};

struct SpaceListHead {
    uint32_t count;
};
struct SpaceRaid {
    char text[64];
};

// The first block behind magic and version, in this order.
inline constexpr SpaceField kSpaceInfoFields[] = {
    SPACE_FIELD(1, 4, NORVBlock, spaceType), SPACE_FIELD(1, 256, NORVBlock, spacePath),
    SPACE_FIELD(4, 128, NORVBlock, text1),   SPACE_FIELD(4, 256, NORVBlock, text2),
    SPACE_FIELD(4, 256, NORVBlock, text3),   SPACE_FIELD(3, 4, NORVBlock, raidMark),
};
inline constexpr SpaceField kSpaceOldCacheFields[] = {
    SPACE_FIELD(5, 4, SpaceCache, mode),
    SPACE_FIELD(5, 256, SpaceCache, id),
};
inline constexpr SpaceField kSpaceLvmFields[] = {
    SPACE_FIELD(1, 4, NORVBlock, lvmMark),
    SPACE_FIELD(1, 128, NORVBlock, lvmText1),
    SPACE_FIELD(1, 256, NORVBlock, lvmText2),
    SPACE_FIELD(1, 4, NORVBlock, lvmValue),
};
inline constexpr SpaceField kSpaceRaidHeadFields[] = {SPACE_FIELD(2, 4, SpaceListHead, count)};
inline constexpr SpaceField kSpaceRaidFields[] = {SPACE_FIELD(2, 64, SpaceRaid, text)}; // as often as the count says
inline constexpr SpaceField kSpaceLimitFields[] = {SPACE_FIELD(5, 16, NORVBlock, raidGroupLimit)};

// The second block behind magic, version, capability and feature.
inline constexpr SpaceField kSpaceCacheHeadFields[] = {SPACE_FIELD(6, 4, SpaceListHead, count)};
// As often as the count says.
inline constexpr SpaceField kSpaceCacheFields[] = {
    SPACE_FIELD(6, 64, SpaceCache, id),
    SPACE_FIELD(6, 4, SpaceCache, mode),
    SPACE_FIELD(6, 8, SpaceCache, size),
    SPACE_FIELD(6, 4, SpaceCache, flags),
};
#undef SPACE_FIELD

constexpr bool space_field_is_text(const SpaceField &field)
{
    return field.disk_bytes > sizeof(uint64_t);
}

// Bytes of the fields on disk; 0 when a number would change its width or a text not fill its member.
constexpr size_t space_fields_bytes(std::span<const SpaceField> fields, uint32_t version)
{
    size_t bytes = 0;
    for (const SpaceField &field : fields) {
        if (space_field_is_text(field) ? field.disk_bytes < field.memory_bytes : field.disk_bytes != field.memory_bytes)
            return 0;
        bytes += field.since <= version ? field.disk_bytes : 0;
    }
    return bytes;
}
static_assert(space_fields_bytes(kSpaceInfoFields, 1) == 260 && space_fields_bytes(kSpaceLvmFields, 1) == 392);
static_assert(space_fields_bytes(kSpaceRaidHeadFields, 1) == 0 && space_fields_bytes(kSpaceRaidHeadFields, 2) == 4);
static_assert(space_fields_bytes(kSpaceInfoFields, 2) == 260 && space_fields_bytes(kSpaceInfoFields, 3) == 264);
static_assert(space_fields_bytes(kSpaceInfoFields, 4) == 904 && space_fields_bytes(kSpaceInfoFields, 5) == 904);
static_assert(space_fields_bytes(kSpaceOldCacheFields, 4) == 0 && space_fields_bytes(kSpaceOldCacheFields, 5) == 260);
static_assert(space_fields_bytes(kSpaceLvmFields, 5) == 392 && space_fields_bytes(kSpaceRaidFields, 5) == 64);
static_assert(space_fields_bytes(kSpaceLimitFields, 4) == 0 && space_fields_bytes(kSpaceLimitFields, 5) == 16);
static_assert(space_fields_bytes(kSpaceCacheHeadFields, 6) == 4 && space_fields_bytes(kSpaceCacheFields, 6) == 80);

// Fields that are read in one go, and what is logged when they cannot be.
struct SpaceFields {
    std::span<const SpaceField> fields;
    const char *trouble;
};
inline constexpr SpaceFields kSpaceInfo = {kSpaceInfoFields, "failed to read space info from disk norvblock"};
inline constexpr SpaceFields kSpaceOldCache = {kSpaceOldCacheFields, "failed to read cache info from disk norvblock"};
inline constexpr SpaceFields kSpaceLvm = {kSpaceLvmFields, "failed to read LVM info into disk norvblock"};
inline constexpr SpaceFields kSpaceRaidHead = {kSpaceRaidHeadFields, "failed to read RAID Count from disk norvblock"};
inline constexpr SpaceFields kSpaceRaid = {kSpaceRaidFields, "failed to read RAID Count from disk norvblock"};
inline constexpr SpaceFields kSpaceLimit = {kSpaceLimitFields, "failed to read raidGroupLimit from disk norvblock"};
inline constexpr SpaceFields kSpaceCacheHead = {kSpaceCacheHeadFields, "failed to read cache info from disk norvblock"};
inline constexpr SpaceFields kSpaceCache = {kSpaceCacheFields, "failed to read cache info from disk norvblock"};

// Reads ahead by whole pages, as the kernel does, so that a usual disk costs one call.
struct SpaceReader {
    explicit SpaceReader(int from) : fd(from) {}
    int fd;
    size_t at = 0, filled = 0;
    uint8_t ahead[4096]; // from `at` to `filled`
};

enum class SpaceTaken { kAll, kEnd, kError }; // kEnd: the device ends before that

[[nodiscard]] SpaceTaken space_bytes_take(SpaceReader *reader, uint8_t *bytes, size_t size);

// Takes those of the fields that the version has. Returns 0; -1 with 0x0a00, logged.
[[nodiscard]] int space_fields_take(SpaceReader *reader, const SpaceFields &group, uint32_t version, void *record);

// Takes a number of a block's head, in either byte order. False when it cannot be read.
[[nodiscard]] bool space_word_take(SpaceReader *reader, uint32_t *word);

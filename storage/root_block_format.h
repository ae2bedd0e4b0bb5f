// The root block's bytes. One table drives reading, writing and the size checks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "storage/root_block.h"

inline constexpr char kRootBlockMagic[] = "NORVESSA_ROOT_BLOCK";

struct RootHeader {
    char magic[64];      // kRootBlockMagic, then zeros
    uint32_t version;    // of the body, from 1
    uint64_t dataOffset; // of the body, bytes from the start of the disk
};

// All that a body of the newest version holds.
struct RootBody {
    PartitionLayout layout;
    uint32_t extraVersion;
    uint32_t capability;
};

// What a field is, for the log; all but the magic are integers.
enum class RootText : uint8_t {
    kMagic,
    kVersion,
    kRaidType,
    kSize,
    kStart,
    kPartitionSize,
    kFsId,
    kExtraVersion,
    kCapability,
};

struct RootField {
    uint16_t at;          // byte offset on disk
    uint8_t disk_bytes;   // width on disk
    uint8_t memory_bytes; // width of the member; a text is as wide as on disk
    uint16_t member;      // byte offset in the record
    RootText text;
    uint8_t since = 1;    // version of the body that brought it
    bool is_flag = false; // any value but 0 reads as 1
};
#define ROOT_FIELD(Record, name) sizeof(Record::name), offsetof(Record, name)

inline constexpr RootField kRootHeaderFields[] = {
    {0, 64, ROOT_FIELD(RootHeader, magic), RootText::kMagic},
    {64, 4, ROOT_FIELD(RootHeader, version), RootText::kVersion},
    {68, 8, ROOT_FIELD(RootHeader, dataOffset), RootText::kStart},
};

inline constexpr RootField kRootBodyFields[] = {
    {0, 4, ROOT_FIELD(RootBody, layout.version), RootText::kVersion},
    {4, 4, ROOT_FIELD(RootBody, layout.blRaidType), RootText::kRaidType, 1, true},
    {8, 8, ROOT_FIELD(RootBody, layout.sysSize), RootText::kSize},
    {16, 8, ROOT_FIELD(RootBody, layout.swapSize), RootText::kSize},
    {24, 8, ROOT_FIELD(RootBody, layout.dataGap), RootText::kSize},
    {32, 8, ROOT_FIELD(RootBody, layout.partition[0].start), RootText::kStart},
    {40, 8, ROOT_FIELD(RootBody, layout.partition[0].size), RootText::kPartitionSize},
    {48, 4, ROOT_FIELD(RootBody, layout.partition[0].fsId), RootText::kFsId},
    {52, 8, ROOT_FIELD(RootBody, layout.partition[1].start), RootText::kStart},
    {60, 8, ROOT_FIELD(RootBody, layout.partition[1].size), RootText::kPartitionSize},
    {68, 4, ROOT_FIELD(RootBody, layout.partition[1].fsId), RootText::kFsId},
    {72, 8, ROOT_FIELD(RootBody, layout.partition[2].start), RootText::kStart},
    {80, 8, ROOT_FIELD(RootBody, layout.partition[2].size), RootText::kPartitionSize},
    {88, 4, ROOT_FIELD(RootBody, layout.partition[2].fsId), RootText::kFsId},
    {92, 4, ROOT_FIELD(RootBody, layout.blBuildinStorage), RootText::kRaidType, 1, true},
    {96, 4, ROOT_FIELD(RootBody, extraVersion), RootText::kExtraVersion, 2},
    {100, 4, ROOT_FIELD(RootBody, capability), RootText::kCapability, 3},
};
#undef ROOT_FIELD

// Bytes of a body of `version`; 0 when its rows overlap, leave a gap or come in another order.
constexpr size_t root_fields_bytes(std::span<const RootField> fields, uint32_t version)
{
    size_t end = 0;
    for (const RootField &field : fields) {
        if (field.since > version)
            break;
        if (field.at != end)
            return 0;
        end += field.disk_bytes;
    }
    return end;
}
inline constexpr size_t kRootHeaderBytes = root_fields_bytes(kRootHeaderFields, 1);
inline constexpr size_t kRootBodyBytes[] = {
    0,
    root_fields_bytes(kRootBodyFields, 1),
    root_fields_bytes(kRootBodyFields, 2),
    root_fields_bytes(kRootBodyFields, 3),
};
static_assert(kRootHeaderBytes == 76);
static_assert(kRootBodyBytes[1] == 96 && kRootBodyBytes[2] == 100 && kRootBodyBytes[3] == 104);
static_assert(std::size(kRootBodyBytes) == kRootBlockVersion + 1);

inline constexpr size_t kRootFieldsMaxBytes = kRootBodyBytes[kRootBlockVersion];
static_assert(kRootHeaderBytes <= kRootFieldsMaxBytes);

// One read or write of all the fields of a version, at byte `offset`, so that a cut-off write leaves no mixture of two
// records; a write is on the disk when it returns. Logs what fell short.
//   path  of the disk, for the log
// Return 0; -1 with 0x0d00, 0x8100 when there is no such offset, 0x0a00 or 0x0b00.
[[nodiscard]] int root_fields_read(int fd, uint64_t offset, std::span<const RootField> fields, uint32_t version,
                                   void *record);
[[nodiscard]] int root_fields_write(int fd, const char *path, uint64_t offset, std::span<const RootField> fields,
                                    uint32_t version, const void *record);

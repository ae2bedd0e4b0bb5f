// The partition table in memory, whatever label it came from, and the rules by which it changes.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "platform/sfdisk/disk.h"
#include "platform/sfdisk/fault.h"

enum class LabelKind : uint8_t { kNone, kDos, kGpt };

struct Partition {
    int number = 0;                      // from 1; an MS-DOS label has its logical partitions from 5 on
    uint64_t start = 0, sectors = 0;     // 512-byte sectors of the whole disk
    uint8_t type = 0;                    // MS-DOS type byte, also under a GPT
    std::array<uint8_t, 128> entry = {}; // as on disk, and written back so: 16 bytes MS-DOS, 128 GPT

    [[nodiscard]] uint64_t end() const { return start + sectors; }
};

inline constexpr uint32_t kGptEntryCount = 128;
inline constexpr int kDosPrimaries = 4;

struct PartitionTable {
    LabelKind kind = LabelKind::kNone;
    uint64_t disk_sectors = 0;
    std::array<uint8_t, kSectorBytes> sector0 = {}; // boot code and disk id stay
    std::vector<Partition> partitions;              // in the order of their numbers

    uint32_t gpt_entry_count = kGptEntryCount;
    uint64_t gpt_first_usable = 0; // sector
    std::array<uint8_t, 16> gpt_disk_id = {};
};

// What -N, -j, -z and -t ask for.
struct PartitionRequested {
    int number = 0;
    uint64_t gap = 0;     // sectors left free behind the partitions of lower numbers
    uint64_t sectors = 0; // kToTheEnd: as far as the next partition, or the end of the disk less kTailSectors
    uint8_t type = 0;
};
inline constexpr uint64_t kToTheEnd = UINT64_MAX;
// The last 1000 sectors belong to a backup block of the disk's owner, who takes its place for free only when it lies
// behind the end of the last partition, and not directly at it.
inline constexpr uint64_t kTailSectors = 1001;

[[nodiscard]] const Partition *table_find(const PartitionTable &table, int number);

// MS-DOS types 5, 0x0f and 0x85.
[[nodiscard]] bool type_is_extended(uint8_t type);

// Whether a disk of this size can be described by an MS-DOS label only in part.
[[nodiscard]] bool disk_needs_gpt(uint64_t disk_sectors);

// An empty table with a new random id: MS-DOS, or GPT on a disk that needs it.
[[nodiscard]] PartitionTable table_new(uint64_t disk_sectors);

// Adds a partition; a table with an MS-DOS label becomes a GPT when the disk or the number asks for it. On a fault the
// table is as before.
[[nodiscard]] Fault table_add(PartitionTable *table, const PartitionRequested &requested);

// Removes all partitions numbered `first` to `last`. Numbers that do not exist are no fault. On a fault the table is as
// before.
[[nodiscard]] Fault table_remove(PartitionTable *table, int first, int last);

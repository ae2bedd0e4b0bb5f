// Layouts of the system partitions: root, swap and data, whose sizes changed over the firmware's history.
#pragma once

#include <cstdint>

#include "storage/partition.h"

struct PartitionLayout {
    int32_t version;
    int32_t blRaidType;           // 1: the members of arrays
    uint64_t sysSize;             // sectors asked for partition 1
    uint64_t swapSize;            // sectors asked for partition 2
    uint64_t dataGap;             // sectors left free behind partition 2
    PartitionExtent partition[3]; // root, swap, data
    int32_t blBuildinStorage;     // 1: built-in storage
};

inline constexpr uint64_t kPartitionToTheEnd = UINT64_MAX; // start and size of a partition that takes what is left
inline constexpr uint64_t kPartitionTypeLinux = 0x83;
inline constexpr uint64_t kPartitionTypeSwap = 0x82;
inline constexpr uint64_t kPartitionTypeRaid = 0xfd;

// Partition 1 of a system disk on the platform with fixed built-in storage, where no layout counts.
inline constexpr PartitionExtent kPartitionHdSeriesSystem = {8192, 209715200, kPartitionTypeRaid};

// Versions that have a meaning of their own.
inline constexpr int kPartitionVersionModel = 0;   // the key `partition_curr_version`
inline constexpr int kPartitionVersionDefault = 8; // without that key
inline constexpr int kPartitionVersionMax = 9;

// The key `partition_curr_version`, kPartitionVersionDefault when it is missing or out of range.
[[nodiscard]] int partition_layout_model_version();

// The layout of a version, for arrays or not, on this model. NULL with 0x0d00 when there is none.
[[nodiscard]] const PartitionLayout *partition_layout_find(int version, bool raid);
// The version of that layout; -1, logged.
[[nodiscard]] int partition_layout_version_get(int version, bool raid);

// The first layout whose partitions 1 and 2 lie there and have these types; its row in `row`. NULL when there is none.
[[nodiscard]] const PartitionLayout *partition_layout_match(const PartitionExtent &root, const PartitionExtent &swap,
                                                            int *row);

// Asks the tool which layout a disk has; a root block that describes the disk's partitions counts too, as row -1.
// Returns 1; 0 when the layout is unknown; -1 with 0x0d00.
[[nodiscard]] int partition_check_layout(const char *disk, PartitionLayout *layout, int *row);

// The quick form: place and size as the kernel knows them, types left out, among the layouts of this model with `raid`.
// Returns 1; 0 when the layout is unknown; -1 with 0x0d00.
[[nodiscard]] int PartitionLayoutDetect(const char *disk, bool raid, int *version);

// The layout that new system partitions should have: that of the system array's members, else of the disks that the
// system may be installed on, the first or with `biggest` the largest, else the model's.
// Returns 0, also without any disk: `version`, 0 at first, is left alone then; -1 when the kernel cannot be asked.
[[nodiscard]] int partition_layout_get_max(int *version, bool biggest);

// Pushes the disks of the system array's members: each partition's name less its last character, on SAS its last two.
// `glob_flags` of glob(3). Returns the number of items in the list; -1 with 0x0a00 or 0x0200.
[[nodiscard]] int partition_system_members(int glob_flags, PNLIBSZLIST *disks);

// Whether the system array has members and each has its partition 1 as kPartitionHdSeriesSystem.
[[nodiscard]] bool partition_hd_series_check();

// The layout of a disk; on a model that boots from eMMC that of partitions 1, 3 and 4 of the first disk, whatever the
// disk.
// Returns 1; 0 when it is unknown.
[[nodiscard]] int GetPartitionLayout(const char *disk, PartitionLayout *layout);
// The layout version of the installed system: of the members of its array with `raid`, else of the first disk; 1 on the
// platform with fixed built-in storage. 0 when it is unknown.
[[nodiscard]] int partition_system_version(bool raid);

// Partitions of a disk: what is known of them, making and deleting them. A disk is a name, bare or with "/dev/" in
// front. All work on the disk is done by the partition tool of the base system.
#pragma once

#include <cstdint>

#include "lib/list.h"

inline constexpr char kPartitionTool[] = "/sbin/sfdisk";

// Place and type of a partition. Sectors have 512 bytes.
struct PartitionExtent {
    uint64_t start; // sectors
    uint64_t size;  // sectors
    uint64_t fsId;  // type byte
    bool operator==(const PartitionExtent &) const = default;
};

// Which partitions an operation is about, as bits.
enum PartitionSet : int {
    kPartitionSystem = 1, // system root and swap, partitions 1 and 2
    kPartitionData = 2,   // data, from partition 3 on
    kPartitionAll = 3,
};

// Facts --------------------------------------------------------------------------------------------------------------

// Reads a line of the tool's listing: device, start, size, type, separated by blanks; numbers decimal, the type
// hexadecimal. Returns 0; -1 with 0x4000 when a column is missing, no number or too large.
[[nodiscard]] int partition_line_parse(const char *line, PartitionExtent *extent);

// Asks the tool for partition `n`. `start` and `fsId` may be NULL. Returns the size in sectors; -1 when there is no
// such partition, or it cannot be asked, with 0x0d00, 0x4000 or what NLIBCPopen leaves.
[[nodiscard]] int64_t PartitionInfoGet(int n, const char *disk, uint64_t *start, uint64_t *fsId);

// Place of partition `n` as the kernel knows it, in sectors. Returns 1; 0 when the kernel has no such partition; -1
// with 0x0d00, 0x0900 or 0x4000.
[[nodiscard]] int partition_start_size_get(const char *disk, int n, uint64_t *start, uint64_t *size);

// Which names of /proc/partitions are wanted.
struct PartitionFilter {
    const char *prefix; // beginning of the bare name; NULL: any
    int container_mask; // bits of DiskContainer; 0: any
};

// Pushes "/dev/<name>" for disks and partitions that the kernel lists, into a list that is sorted from then on. The
// listing's head line counts as a name when the mask is 0, so an entry need not exist. `filter` NULL takes everything.
// Returns the number of items in the list; -1 with 0x0d00, 0x0900, 0x0a00 or 0x0200.
[[nodiscard]] int partition_path_enum(const PartitionFilter *filter, PNLIBSZLIST *list);

// Making and deleting ------------------------------------------------------------------------------------------------

// Writes an empty MS-DOS label unless the disk has one. Returns 0; -1 when the tool failed.
[[nodiscard]] int partition_table_add(const char *disk);

// Makes partitions 1 and 2, or with kPartitionData among `what` partition 3 alone.
//   version  layout; points to 0: the model's own; NULL: that of the disk, else of the machine's other disks
// Returns 0; -1 with 0x0d00 for neither bit or an unknown layout, or when the tool failed: what was made stays.
[[nodiscard]] int partition_create(const char *disk, int what, const int *version);

// Deletes partitions. kPartitionAll leaves an empty label in any case. Returns 0, also when the tool failed; -1 with
// 0x0d00 on a bad argument.
[[nodiscard]] int partition_clean(const char *disk, int what);

// Removes the RAID superblock of partition `n`. Returns 0; -1 with 0x0d00, or when mdadm failed.
[[nodiscard]] int partition_clean_superblock(const char *disk, int n);

// What the two ways to identify a layout share.
#pragma once

#include "storage/partition_layout.h"

[[nodiscard]] inline bool same_place(const PartitionExtent &left, const PartitionExtent &right)
{
    return left.start == right.start && left.size == right.size;
}

// Whether a stored layout is one, and puts partitions 1 and 2 where they lie.
[[nodiscard]] inline bool partition_layout_describes(const PartitionLayout &stored, const PartitionExtent &root,
                                                     const PartitionExtent &swap)
{
    return stored.version != 0 && same_place(stored.partition[0], root) && same_place(stored.partition[1], swap);
}

// The layout in the disk's root block when it describes the disk. Returns 1; 0 otherwise.
[[nodiscard]] int partition_layout_from_root_block(const char *disk, const PartitionExtent &root,
                                                   const PartitionExtent &swap, PartitionLayout *layout);

// What the two ways to identify a layout share.
#pragma once

#include "storage/partition_layout.h"

[[nodiscard]] inline bool same_place(const PartitionExtent &left, const PartitionExtent &right)
{
    return left.start == right.start && left.size == right.size;
}

// The layout in the disk's root block when it puts partitions 1 and 2 where they lie. Returns 1; 0 otherwise.
[[nodiscard]] int partition_layout_from_root_block(const char *disk, const PartitionExtent &root,
                                                   const PartitionExtent &swap, PartitionLayout *layout);

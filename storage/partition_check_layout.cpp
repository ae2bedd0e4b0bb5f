#include "lib/report.h"
#include "storage/partition_layout.h"
#include "storage/partition_layout_parts.h"
#include "storage/partition_layout_table.h"
#include "storage/root_block.h"

const PartitionLayout *partition_layout_match(const PartitionExtent &root, const PartitionExtent &swap, int *row)
{
    for (size_t i = 0; i < std::size(partition_layout_table::kRows); i++) {
        const PartitionLayout &layout = partition_layout_table::kRows[i];
        if (layout.partition[0] != root || layout.partition[1] != swap)
            continue;
        *row = static_cast<int>(i);
        return &layout;
    }
    return nullptr;
}

int partition_layout_from_root_block(const char *disk, const PartitionExtent &root, const PartitionExtent &swap,
                                     PartitionLayout *layout)
{
    UniqueRootBlock block;
    if (root_block_get(disk, block.address()) <= 0)
        return 0;
    const PartitionLayout *stored = block.get()->layout;
    if (stored == nullptr || !partition_layout_describes(*stored, root, swap))
        return 0;
    *layout = *stored;
    return 1;
}

int partition_check_layout(const char *disk, PartitionLayout *layout, int *row)
{
    if (disk == nullptr || layout == nullptr)
        return fail(kErrBadParameter);
    PartitionExtent extents[2] = {};
    for (int n = 1; n <= 2; n++) {
        PartitionExtent &extent = extents[n - 1];
        const int64_t size = PartitionInfoGet(n, disk, &extent.start, &extent.fsId);
        if (size < 0)
            NORV_LOG(LOG_DEBUG, "%s: dont contain partition [%d]", disk, n);
        else
            extent.size = static_cast<uint64_t>(size);
    }
    int found = -1;
    const PartitionLayout *match = partition_layout_match(extents[0], extents[1], &found);
    if (match != nullptr)
        *layout = *match;
    else if (partition_layout_from_root_block(disk, extents[0], extents[1], layout) == 0)
        return 0;
    if (row != nullptr)
        *row = found;
    return 1;
}

#include "lib/conf.h"
#include "lib/report.h"
#include "storage/partition_layout.h"
#include "storage/partition_layout_parts.h"
#include "storage/partition_layout_table.h"

int PartitionLayoutDetect(const char *disk, bool raid, int *version)
{
    if (disk == nullptr || version == nullptr)
        return fail(kErrBadParameter);
    PartitionExtent root = {}, swap = {};
    if (partition_start_size_get(disk, 1, &root.start, &root.size) != 1 ||
        partition_start_size_get(disk, 2, &swap.start, &swap.size) != 1)
        return 0;
    const int is_raid = raid ? 1 : 0, is_builtin = NLIBCConfIsYes("support_buildin_storage") ? 1 : 0;
    for (const PartitionLayout &row : partition_layout_table::kRows)
        if (row.blRaidType == is_raid && row.blBuildinStorage == is_builtin && same_place(row.partition[0], root) &&
            same_place(row.partition[1], swap)) {
            *version = row.version;
            return 1;
        }
    PartitionLayout stored;
    if (partition_layout_from_root_block(disk, root, swap, &stored) == 0)
        return 0;
    *version = stored.version;
    return 1;
}

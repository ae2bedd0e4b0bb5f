#include "autocleanup/unique.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "storage/partition_layout.h"
#include "storage/partition_layout_table.h"

static constexpr char kFirstDisk[] = "sda";
static constexpr int kListBytes = 1024;

// The partitions that tell the layout of a model that boots from eMMC.
static constexpr int kEmmcNumbers[] = {1, 3, 4};

static bool extent_get(const char *disk, int n, PartitionExtent *extent)
{
    const int64_t size = PartitionInfoGet(n, disk, &extent->start, &extent->fsId);
    extent->size = static_cast<uint64_t>(size);
    return size >= 0;
}

int GetPartitionLayout(const char *disk, PartitionLayout *layout)
{
    if (!NLIBCConfIsYes("support_emmc_boot"))
        return partition_check_layout(disk, layout, nullptr) == 1 ? 1 : 0;
    PartitionExtent found[std::size(kEmmcNumbers)];
    for (size_t i = 0; i < std::size(kEmmcNumbers); i++)
        if (!extent_get(kFirstDisk, kEmmcNumbers[i], &found[i]))
            return 0;
    // Root, swap and data, which may lie anywhere; or root and swap behind a partition to boot from.
    const auto &[root, swap, data] = partition_layout_table::kEmmc.partition;
    if ((found[0] != root || found[1] != swap || found[2].fsId != data.fsId) && (found[1] != root || found[2] != swap))
        return 0;
    *layout = partition_layout_table::kEmmc;
    return 1;
}

bool partition_hd_series_check()
{
    UniqueList disks(NLIBCSzListAlloc(kListBytes));
    const int members = disks ? partition_system_members(0, disks.address()) : -1;
    for (int i = 0; i < members; i++) {
        PartitionExtent root;
        if (!extent_get(disks.get()->items[i], 1, &root) || root != kPartitionHdSeriesSystem)
            return false;
    }
    return members > 0;
}

int partition_system_version(bool raid)
{
    if (NLIBCConfIsHdSeries())
        return partition_hd_series_check() ? 1 : 0;
    PartitionLayout layout = {};
    if (!raid)
        return GetPartitionLayout(kFirstDisk, &layout) == 1 ? layout.version : 0;
    UniqueList disks(NLIBCSzListAlloc(kListBytes));
    const int members = disks ? partition_system_members(0, disks.address()) : -1;
    for (int i = 0; i < members; i++)
        if (GetPartitionLayout(disks.get()->items[i], &layout) != 1)
            return 0;
    return layout.version;
}

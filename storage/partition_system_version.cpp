#include "autocleanup/unique.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "storage/partition_layout.h"
#include "storage/partition_layout_table.h"

static constexpr char kFirstDisk[] = "sda";
static constexpr int kListBytes = 1024;

// Numbers of root, swap and data on a model that boots from eMMC.
static constexpr int kEmmcNumbers[] = {1, 3, 4};

static bool extent_get(const char *disk, int n, PartitionExtent *extent)
{
    const int64_t size = PartitionInfoGet(n, disk, &extent->start, &extent->fsId);
    extent->size = static_cast<uint64_t>(size);
    return size >= 0;
}

// Whether a partition is the one of a layout, where one that takes what is left may lie anywhere.
static bool extent_fits(const PartitionExtent &found, const PartitionExtent &wanted)
{
    return found == wanted || (wanted.start == kPartitionToTheEnd && found.fsId == wanted.fsId);
}

int GetPartitionLayout(const char *disk, PartitionLayout *layout)
{
    if (!NLIBCConfIsYes("support_emmc_boot"))
        return partition_check_layout(disk, layout, nullptr) == 1 ? 1 : 0;
    const PartitionLayout &emmc = partition_layout_table::kEmmc;
    for (size_t i = 0; i < std::size(kEmmcNumbers); i++) {
        PartitionExtent extent;
        if (!extent_get(kFirstDisk, kEmmcNumbers[i], &extent) || !extent_fits(extent, emmc.partition[i]))
            return 0;
    }
    *layout = emmc;
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

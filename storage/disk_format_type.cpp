#include "storage/disk_format_type.h"

#include <cstring>
#include <unistd.h>

#include "disk/disk.h"
#include "lib/report.h"
#include "lib/string.h"
#include "storage/partition_layout.h"
#include "storage/raid.h"
#include "storage/root_block.h"

namespace
{

constexpr char kForceFlag[] = "/.force_clean_all_disk";

bool has_system_partition(const char *disk)
{
    return PartitionInfoGet(1, disk, nullptr, nullptr) >= 0 || PartitionInfoGet(2, disk, nullptr, nullptr) >= 0;
}

// Whether the partition belongs to an array of a system that shares its disks with this one.
bool is_ours(const char *partition)
{
    RaidSuperblock superblock;
    return raid_superblock_get(partition, &superblock) > 0 &&
           root_block_is_compatible(partition) != kRootBlockIncompatible;
}

// A disk of layout `found`, which is known, has a partition of ours.
DiskFormatType type_by_version(const char *disk, int found, int wanted)
{
    const bool equal = found == wanted || (found == 7 && wanted == 8); // 8 only starts later, and in place
    if (equal)
        return kDiskFormatSystem;
    return raid_disk_is_used_by_raid(disk, nullptr) == 1 ? kDiskFormatLeave : kDiskFormatWhole;
}

DiskFormatType type_find(const char *disk, int wanted, const NLIBSZLIST *partitions)
{
    char path[128];
    if (disk == nullptr || NLIBCStrSnprintf(path, sizeof(path), "/dev/%s", disk_bare_name(disk)) < 0) {
        NORV_LOG(LOG_ERR, "Null List Error");
        return kDiskFormatLeave;
    }
    if (access(kForceFlag, F_OK) == 0 || !has_system_partition(disk))
        return kDiskFormatWhole;
    int found = 0;
    if (PartitionLayoutDetect(disk, true, &found) != 1)
        return kDiskFormatUnknown;
    if (partitions == nullptr) {
        NORV_LOG(LOG_ERR, "Null List Error");
        return kDiskFormatLeave;
    }
    for (int i = 0; i < partitions->nItem; i++) {
        // Anywhere in the path, so that the partitions of sdaa are looked at for sda too.
        if (strstr(partitions->items[i], path) == nullptr || !is_ours(partitions->items[i]))
            continue;
        if (found == wanted && found == 1) // of the oldest layout nothing can be kept
            continue;
        return type_by_version(disk, found, wanted);
    }
    return kDiskFormatWhole;
}

} // namespace

DiskFormatType disk_format_type(const char *disk, int version, const NLIBSZLIST *partitions)
{
    const DiskFormatType type = type_find(disk, version, partitions);
    if (type == kDiskFormatLeave)
        NORV_LOG(LOG_ERR, "Failed to get format type");
    return type;
}

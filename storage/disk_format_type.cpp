#include "storage/disk_format_type.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

#include "disk/disk.h"
#include "lib/report.h"
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

// About a disk of a known layout, of which a partition is ours.
void decide_by_layout(const char *disk, int wanted, DiskFormatDecision *decision)
{
    const int found = decision->layout;
    if (found == wanted || (found == 7 && wanted == 8)) { // 8 only starts later, and in place
        decision->type = kDiskFormatSystem;
        decision->reason = kFormatSameLayout;
    } else if (raid_disk_is_used_by_raid(disk, nullptr) == 1) {
        decision->type = kDiskFormatLeave;
        decision->reason = kFormatOtherLayoutUsed;
    } else {
        decision->type = kDiskFormatWhole;
        decision->reason = kFormatOtherLayout;
    }
}

} // namespace

DiskFormatDecision disk_format_decide(const char *disk, int version, const NLIBSZLIST *partitions)
{
    char path[128];
    if (disk == nullptr || disk_device_path_get(disk, path, sizeof(path)) < 0) {
        NORV_LOG(LOG_ERR, "Null List Error");
        return {kDiskFormatLeave, kFormatNotNamed, 0, nullptr};
    }
    if (access(kForceFlag, F_OK) == 0)
        return {kDiskFormatWhole, kFormatForced, 0, nullptr};
    if (!has_system_partition(disk))
        return {kDiskFormatWhole, kFormatNoPartitions, 0, nullptr};
    int found = 0;
    if (PartitionLayoutDetect(disk, true, &found) != 1)
        return {kDiskFormatUnknown, kFormatNoLayout, 0, nullptr};
    if (partitions == nullptr) {
        NORV_LOG(LOG_ERR, "Null List Error");
        return {kDiskFormatLeave, kFormatNoListing, found, nullptr};
    }
    const bool is_oldest = found == version && found == 1;
    DiskFormatDecision decision = {kDiskFormatWhole, is_oldest ? kFormatOldestLayout : kFormatNotOurs, found, nullptr};
    for (int i = 0; i < partitions->nItem && decision.partition == nullptr; i++) {
        // Anywhere in the path, so that the partitions of sdaa are looked at for sda too.
        if (strstr(partitions->items[i], path) == nullptr || !is_ours(partitions->items[i]) || is_oldest)
            continue;
        decision.partition = partitions->items[i];
        decide_by_layout(disk, version, &decision);
    }
    return decision;
}

DiskFormatType disk_format_type(const char *disk, int version, const NLIBSZLIST *partitions)
{
    const DiskFormatType type = disk_format_decide(disk, version, partitions).type;
    if (type == kDiskFormatLeave)
        NORV_LOG(LOG_ERR, "Failed to get format type");
    return type;
}

void disk_format_settle(int *types, int count)
{
    const bool keeps_data = std::find(types, types + count, int{kDiskFormatSystem}) != types + count;
    if (keeps_data)
        std::replace(types, types + count, int{kDiskFormatUnknown}, int{kDiskFormatLeave});
}

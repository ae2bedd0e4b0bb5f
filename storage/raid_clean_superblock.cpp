#include <cstring>

#include "disk/disk.h"
#include "lib/report.h"
#include "storage/partition.h"
#include "storage/raid_parts.h"
#include "storage/space.h"

// Internal bays, expansion units and cache slots.
static constexpr PartitionFilter kMemberDisks = {nullptr, kDiskContainerInternal | kDiskContainerExpansion |
                                                              kDiskContainerCache};
static constexpr int kSwapPartition = 2; // never looked at, so that swap outlives the wipe

// Whether the path is a partition that may be wiped and carries the UUID.
static bool carries_uuid(const char *path, const char *uuid)
{
    char disk[128];
    const int number = disk_partition_num_get(path, disk, sizeof(disk));
    RaidSuperblock superblock;
    return number > 0 && number != kSwapPartition && raid_superblock_get(path, &superblock) > 0 &&
           strcmp(superblock.uuid, uuid) == 0;
}

int raid_clean_superblock(const char *partition)
{
    if (partition == nullptr)
        return fail(kErrBadParameter);
    if (space_execl(kMdadm, "--zero-superblock", partition, nullptr) == 0)
        return 0;
    NORV_LOG(LOG_DEBUG, "Failed to zero RAID superblock '%s'", partition);
    return fail(kErrChild);
}

int raid_clean_superblock_by_uuid(const char *uuid)
{
    if (uuid == nullptr)
        return fail(kErrBadParameter);
    UniqueList found(NLIBCSzListAlloc(1024)), members(NLIBCSzListAlloc(1024));
    if (!found || !members || partition_path_enum(&kMemberDisks, found.address()) < 0)
        return -1;
    for (int i = 0; i < found.get()->nItem; i++)
        if (carries_uuid(found.get()->items[i], uuid) && NLIBCSzListPush(members.address(), found.get()->items[i]) < 0)
            return -1;
    for (int i = 0; i < members.get()->nItem; i++) {
        const char *partition = members.get()->items[i];
        NORV_LOG(LOG_WARNING, "[Info] Clean RAID superblock on '%s'", partition);
        if (raid_clean_superblock(partition) != 0)
            return -1;
    }
    return 0;
}

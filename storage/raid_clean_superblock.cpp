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

// Whether the path is a partition that may be wiped and carries the UUID: 1; 0, also when that cannot be told; -1 with
// 0x0200 when only memory was wanting.
static int carries_uuid(const char *path, const char *uuid)
{
    char disk[128];
    const int number = disk_partition_num_get(path, disk, sizeof(disk));
    RaidSuperblock superblock;
    if (number <= 0 || number == kSwapPartition)
        return 0;
    NLIBCErrSet(kErrNone, __FILE_NAME__, __LINE__);
    if (raid_superblock_get(path, &superblock) <= 0)
        return NLIBCErrGet() == kErrOutOfMemory ? -1 : 0;
    return strcmp(superblock.uuid, uuid) == 0 ? 1 : 0;
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
    for (int i = 0; i < found.get()->nItem; i++) {
        const int carries = carries_uuid(found.get()->items[i], uuid);
        if (carries < 0 || (carries == 1 && NLIBCSzListPush(members.address(), found.get()->items[i]) < 0))
            return -1;
    }
    for (int i = 0; i < members.get()->nItem; i++) {
        const char *partition = members.get()->items[i];
        NORV_LOG(LOG_WARNING, "[Info] Clean RAID superblock on '%s'", partition);
        if (raid_clean_superblock(partition) != 0)
            return -1;
    }
    return 0;
}

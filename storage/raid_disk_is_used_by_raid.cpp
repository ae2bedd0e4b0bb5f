#include "disk/disk.h"
#include "lib/report.h"
#include "storage/raid_parts.h"

int raid_disk_is_used_by_raid(const char *disk, int *number)
{
    static constexpr int kDataPartitions[] = {3, 5};
    for (const int partition : kDataPartitions) {
        char path[128];
        RaidSuperblock superblock;
        if (disk_device_partition_path_get(disk, partition, path, sizeof(path)) != 0 ||
            raid_superblock_get(path, &superblock) != 1)
            continue;
        if (number != nullptr)
            *number = superblock.device[0] != '\0' ? raid_path_number(superblock.device) : -1;
        return 1;
    }
    return 0;
}

#include "disk/disk.h"
#include "lib/report.h"
#include "storage/partition.h"
#include "storage/raid.h"
#include "storage/space.h"

int partition_clean(const char *disk, int what)
{
    static constexpr const char *kNumbers[] = {nullptr, "1:2", "3:128", "-1"}; // by PartitionSet
    if (disk == nullptr || what < kPartitionSystem || what > kPartitionAll)
        return fail(kErrBadParameter);
    char path[64];
    if (disk_device_path_get(disk, path, sizeof(path)) < 0)
        return -1;
    if (space_execl(kPartitionTool, "--fast-delete", kNumbers[what], path, nullptr) != 0)
        NORV_LOG(LOG_DEBUG, "Failed to do '%s --fast-delete %s %s'", kPartitionTool, kNumbers[what], path);
    if (what == kPartitionAll)
        static_cast<void>(partition_table_add(path)); // it has logged why not
    return 0;
}

int partition_clean_superblock(const char *disk, int n)
{
    if (disk == nullptr || n < 1) {
        NORV_LOG(LOG_ERR, "Bad parameters");
        return fail(kErrBadParameter);
    }
    char path[64];
    if (disk_device_partition_path_get(disk, n, path, sizeof(path)) != 0)
        return -1;
    return raid_clean_superblock(path);
}

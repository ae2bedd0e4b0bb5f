#include "disk/disk.h"
#include "lib/report.h"
#include "storage/partition.h"
#include "storage/space.h"

int partition_table_add(const char *disk)
{
    if (disk == nullptr)
        return fail(kErrBadParameter);
    char path[64];
    if (disk_device_path_get(disk, path, sizeof(path)) < 0)
        return -1;
    const int status = space_execl(kPartitionTool, "-M1", path, nullptr);
    if (status == 0)
        return 0;
    NORV_LOG(LOG_ERR, "Failed to add ms-dos signature to %s, err=%d", path, status);
    return fail(kErrChild);
}

#include <cstdio>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "install/system_status.h"
#include "lib/conf.h"
#include "lib/globals.h"
#include "lib/report.h"
#include "storage/partition_layout.h"

// Layouts 1, 3, 4 and 5 of a model without RAID are foreign.
static bool single_disk_is_known()
{
    PartitionLayout layout;
    return GetPartitionLayout("sda", &layout) == 1 && layout.blRaidType == 0 &&
           (layout.version == 2 || layout.version > 5);
}

static bool disk_is_known(const char *disk)
{
    char path[64];
    snprintf(path, sizeof(path), "/dev/%s", disk);
    PartitionLayout layout;
    if (GetPartitionLayout(disk, &layout) != 1) {
        NORV_LOG(LOG_ERR, "Dev: %s, DiskPath: %s, Partition version: %s", disk, path, "[not norv partition]");
        return false;
    }
    NORV_LOG(LOG_ERR, "Dev: %s, DiskPath: %s, Partition version: %d", disk, path, layout.version);
    return layout.version != 1;
}

static bool any_disk_is_known()
{
    for (int type = kDiskPortInternal; type <= kDiskPortUsb; type++) {
        UniqueList disks(NLIBCSzListAlloc(1024));
        if (!disks) {
            NORV_LOG(LOG_ERR, "Out of memeory, failed to allocate memory for PNLIBSZLIST via NLIBCSzListAlloc");
            return false;
        }
        if (external_disk_port_enum(type, disks.address()) != 0)
            continue;
        for (int i = 0; i < disks.get()->nItem; i++)
            if (disk_is_known(NLIBCSzListGet(disks.get(), i)))
                return true;
    }
    return false;
}

bool system_partitions_are_known()
{
    if (NLIBCConfIsHdSeries())
        return partition_system_version(gblSupportRaid != 0) == 1;
    return gblSupportRaid != 0 ? any_disk_is_known() : single_disk_is_known();
}

#include <algorithm>
#include <glob.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "storage/partition_layout.h"
#include "storage/raid.h"

static constexpr int kListBytes = 1024;

// Of the disks that the system may be installed on.
static int installable_version(const NLIBSZLIST *disks, bool biggest)
{
    const bool raid = conf_supportraid();
    int chosen = 0;
    for (int i = 0; i < disks->nItem; i++) {
        const char *disk = disks->items[i];
        int version = 0, array = 0;
        if (PartitionLayoutDetect(disk, raid, &version) != 1 || (raid && raid_disk_is_used_by_raid(disk, &array) != 1))
            continue;
        if (!biggest && version != 0)
            return version;
        chosen = std::max(chosen, version);
    }
    if (chosen != 0)
        NORV_LOG(LOG_ERR, "Choose biggest partition layout version %d.", chosen);
    return chosen;
}

int partition_layout_get_max(int *version, bool biggest)
{
    if (version == nullptr)
        return fail(kErrBadParameter);
    UniqueList disks(NLIBCSzListAlloc(kListBytes));
    if (!disks)
        return -1;
    const int members = partition_system_members(GLOB_NOSORT, disks.address());
    if (members < 0)
        return -1;
    int found = 0;
    if (members > 0) {
        for (int i = 0; i < members && found == 0; i++)
            if (PartitionLayoutDetect(disks.get()->items[i], true, &found) != 1)
                found = 0;
    } else {
        if (NORVDiskSystemInstallationDeviceEnum(disks.address()) != 0)
            return -1;
        if (disks.get()->nItem == 0)
            return 0;
        found = installable_version(disks.get(), biggest);
    }
    *version = found != 0 ? found : partition_layout_model_version();
    return 0;
}

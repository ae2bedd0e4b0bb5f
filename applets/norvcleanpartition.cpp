#include <cstdio>
#include <cstdlib>

#include "applets/applets.h"
#include "disk/disk.h"
#include "lib/globals.h"
#include "lib/report.h"
#include "storage/raid.h"
#include "storage/space.h"
#include "swap/swap.h"

namespace
{

constexpr int kClasses[] = {kDiskPortInternal, kDiskPortEsata, kDiskPortExpansion,
                            kDiskPortUsb,      kDiskPortCache, kDiskPortSystem};

using DiskPath = char[16]; // a longer path is cut

void disk_path_make(DiskPath &path, const char *name)
{
    snprintf(path, sizeof(path), "/dev/%.10s", name);
}

void disk_start_wipe(const DiskPath &path)
{
    char command[128];
    snprintf(command, sizeof(command), "dd if=/dev/zero of=%s bs=1M count=1 1>/dev/null 2>&1", path);
    if (system(command) != 0)
        return; // the next disk may do better
}

void class_wipe(const NLIBSZLIST *disks)
{
    DiskPath path = "";
    for (int i = 0; i < disks->nItem; i++) {
        disk_path_make(path, disks->items[i]);
        disk_start_wipe(path);
    }
    // Once for the class, on its last disk.
    if (gblSupportRaid == 1 && disks->nItem > 0 && space_execl("/sbin/mdadm", "--zero-superblock", path, nullptr) != 0)
        NORV_LOG(LOG_ERR, "Failed to zero RAID superblock '%s'", path);
}

} // namespace

int norvcleanpartition_main(int /*argc*/, char * /*argv*/[])
{
    UniqueList disks(NLIBCSzListAlloc(1024));
    if (!disks) {
        NORV_LOG(LOG_ERR, "Out of memeory, failed to allocate memory for PNLIBSZLIST via NLIBCSzListAlloc");
        return 0;
    }
    if (gblSupportRaid == 1) {
        raid_stop("/dev/md0");
        if (swap_stop() < 0)
            NORV_LOG(LOG_ERR, "Fail to swap stop!");
    }
    for (const int type : kClasses) {
        NLIBCSzListReset(disks.get());
        static_cast<void>(external_disk_port_enum(type, disks.address())); // what was found is wiped
        class_wipe(disks.get());
    }
    return 0;
}

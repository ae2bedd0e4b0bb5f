#include "boot/boot_partition.h"

#include <cerrno>
#include <sys/mount.h>

#include "boot/boot_lock.h"
#include "lib/conf.h"
#include "lib/proc.h"
#include "lib/report.h"

static constexpr char kEfiMountPoint[] = "/boot/efi";

static const char *boot_device()
{
    return conf_ali_nos() ? "/dev/sda2" : "/dev/norvboot2";
}

static bool device_mount(const char *function, const char *device, const char *folder)
{
    for (const char *type : {"ext2", "vfat"}) {
        if (mount(device, folder, type, MS_SILENT, nullptr) == 0)
            return true;
        if (errno == EBUSY)
            return false;
    }
    NORV_LOG_OLD(LOG_ERR, function, ": failed to mount boot device %s %s (errno:%d)", device, folder, errno);
    return false;
}

static int partition_mount(const char *function, const char *folder)
{
    bool holder_died;
    if (boot_lock_take(&holder_died) != 0)
        return -1;
    if (holder_died)
        umount(folder); // what it had mounted would be in the way
    NLIBCExecl("/bin/mkdir", kForkNullStreams, "-p", folder, nullptr);
    if (device_mount(function, boot_device(), folder))
        return 0;
    boot_lock_give();
    return -1;
}

static int partition_unmount(const char *folder)
{
    umount(folder);
    boot_lock_give();
    return 0;
}

int MountBootPartition()
{
    return partition_mount(__func__, kBootMountPoint);
}

int UmountBootPartition()
{
    return partition_unmount(kBootMountPoint);
}

int MountEfiPartition()
{
    return partition_mount(__func__, kEfiMountPoint);
}

int UmountEfiPartition()
{
    return partition_unmount(kEfiMountPoint);
}

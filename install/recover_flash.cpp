#include <cstdio>

#include "disk/disk.h"
#include "install/patch.h"
#include "install/recoverable.h"
#include "install/volume.h"
#include "lib/report.h"

// A line for the terminal.
#define TELL(stream, format, ...) fprintf(stream, "%s:%d " format, __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

static constexpr int kNotRecoverable = 13;

static int mounted_system_recover()
{
    if (IsSystemRecoverable(kRecoverMountPoint) == 1)
        return RunRecoverUpdater("/recover//.norv/patch/updater");
    NORV_LOG(LOG_ERR, "%s is not recoverable", kRecoverMountPoint);
    return kNotRecoverable;
}

int recover_flash()
{
    update_progress_set(0);
    char device[32] = "";
    (void)disk_sys_device_path_get(device, sizeof(device));
    const int result = volume_mount(device, kRecoverMountPoint) == 0 ? mounted_system_recover() : int{kPatchFailed};
    volume_unmount(kRecoverMountPoint);
    if (result == 0) {
        TELL(stdout, "Recover flash success!\n");
        return 0;
    }
    TELL(stdout, "recover system image fail [%d]\n", result);
    TELL(stdout, "Recover flash fail\n");
    return -1;
}

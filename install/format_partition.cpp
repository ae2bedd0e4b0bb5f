#include <cstdio>
#include <cstring>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include "install/format.h"
#include "install/shell.h"
#include "install/system_status.h"
#include "install/volume.h"
#include "lib/file.h"
#include "lib/globals.h"
#include "lib/report.h"

static constexpr uint64_t kNeededMib = 200;

static void mkfs_progress_remove(const char *device)
{
    char path[64];
    snprintf(path, sizeof(path), "/tmp/mkfs.progress.%s", base_name(device));
    unlink(path);
}

// Tells the fresh system which volume it was unpacked on.
static void upgrade_volume_note()
{
    if (volume_mount(gszSysDev, kSystemMountPoint) != 0) {
        NORV_LOG(LOG_ERR, "mount root partition failed.");
        return;
    }
    if (gblSupportRaid == 0 && shell_run("/bin/echo %d > /tmpRoot/.upgrade_vol", gblUpgradeVol) != 0)
        NORV_LOG(LOG_ERR, "set upgrade volume failed.");
    volume_unmount(kSystemMountPoint);
}

int ErrFHOSTDoFdiskFormat(int createDataVol, int status)
{
    NORV_LOG(LOG_ERR, "CreateDataVol=[%u]", static_cast<unsigned>(createDataVol));
    mkfs_progress_remove(gszSysDev);
    mkfs_progress_remove(gszDataDev);
    (void)shell_run("%s", "/bin/rm -f /tmp/norvdd.*");
    volume_unmount(gszUpgradeVolMnt);
    char line[256];
    snprintf(line, sizeof(line), "/usr/norv/sbin/installer.sh %s %s %s >> /tmp/installer_sh.log 2>&1",
             status != SYSTEM_NORMAL ? "-r" : "", createDataVol != 0 ? "-d" : "",
             NLIBCFileIsRegular("/.unknown_norv_partition_migrate") ? "-m" : "");
    NORV_LOG(LOG_ERR, "installer cmd=[%s]", line);
    const int raw = shell_run("%s", line);
    const int result = raw != -1 && WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    if (result != 0)
        NORV_LOG(LOG_ERR, "szCmd=[%s], retv=[%d]", line, result);
    else
        upgrade_volume_note();
    NORV_LOG(LOG_ERR, "retv=[%d]", result);
    NORV_LOG_CALL(LOG_ERR, "(%s) retv=[%d]", __func__, result);
    return result;
}

// Bytes that a file system has free; 0 when it cannot be asked.
static uint64_t NLIBGetFsFreeSize(const char *path)
{
    struct statvfs status;
    if (statvfs(path, &status) != 0) {
        fail(kErrSystemCall);
        return 0;
    }
    return static_cast<uint64_t>(status.f_bavail) * status.f_frsize;
}

static unsigned free_space_check(const char *mount)
{
    const uint64_t bytes = NLIBGetFsFreeSize(mount);
    if (bytes == 0) {
        NORV_LOG(LOG_ERR, "NLIBGetFsFreeSize(%s) fail.[0x%04X %s:%d]", mount, NORV_ERR_ARGS);
        return kCodeVolume;
    }
    if (bytes >> 20 < kNeededMib) {
        NORV_LOG(LOG_ERR, "FreeSize = %lu bytes, not enough\n", bytes);
        return kCodeNoSpace;
    }
    return 0;
}

// Mounts the volume. Returns 0, or an InstallCode.
static unsigned PrepareMntPoint(const char *device, const char *mount)
{
    if (folder_make(mount) != 0) {
        NORV_LOG(LOG_ERR, "Fail to mkdir %s[0x%04X %s:%d]", mount, NORV_ERR_ARGS);
        return kCodeVolume;
    }
    if (volume_mount(device, mount) != 0) {
        NORV_LOG(LOG_ERR, "Mount %s on %s Fail", device, mount);
        return kCodeVolume;
    }
    return free_space_check(mount);
}

int FormatPartition(int migrate, char *mount_out, size_t size, InstallProgress progress)
{
    DetectSysStatus();
    const int status = gSysStatus == SYSTEM_NORMAL && migrate == 0 ? int{SYSTEM_CRASHED} : gSysStatus;
    NORV_LOG(LOG_ERR, "system status = %d", status);
    progress(kStageFormat, 0, 0);
    if (migrate == 1) {
        if (volume_is_mounted(gszUpgradeVolMnt)) // by an install that was killed
            volume_unmount(gszUpgradeVolMnt);
    } else if (ErrFHOSTDoFdiskFormat(gblCreateDataVol, status) != 0) {
        progress(kStageFormat, kCodeFormat, 0);
        return -1;
    }
    snprintf(mount_out, size, "%s", gszUpgradeVolMnt);
    const unsigned code = PrepareMntPoint(gszUpgradeVolDev, mount_out);
    if (code == 0)
        return 0;
    NORV_LOG(LOG_ERR, "PrepareMntPoint(%s, %s) fail", gszUpgradeVolDev, mount_out);
    progress(status == SYSTEM_NORMAL ? kStageFailed : kStageFormat, code, 0);
    return -1;
}

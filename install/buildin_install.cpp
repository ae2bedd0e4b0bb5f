#include <cstdio>

#include "boot/boot_partition.h"
#include "install/format.h"
#include "install/patch.h"
#include "install/recoverable.h"
#include "install/shell.h"
#include "install/system_status.h"
#include "lib/cksum/cksum.h"
#include "lib/file.h"
#include "lib/report.h"

static constexpr unsigned kCodeBootMount = 5, kCodeBootInstall = 43, kCodeBootPatch = 45;

// Whether the boot partition carries a whole patch of this very version.
static bool NORVJCustBootPatchOK()
{
    char path[64];
    for (const char *name : {"hda1.tgz", "VERSION", "updater", kChecksumListName}) {
        snprintf(path, sizeof(path), "%s/%s", kBootMountPoint, name);
        if (!NLIBCFileIsRegular(path))
            return false;
    }
    const int result = CheckDirChecksum(kBootMountPoint, 0);
    if (result != kChecksumGood) {
        NORV_LOG(LOG_ERR, "Fail to verify checksum of %s...(retv=0x%X) [%m]", kBootMountPoint,
                 static_cast<unsigned>(result));
        return false;
    }
    snprintf(path, sizeof(path), "%s/VERSION", kBootMountPoint);
    if (CompareVersion(path, "/etc.defaults/VERSION") != 0) {
        NORV_LOG(LOG_ERR, "version in %s is different from %s", path, "/etc.defaults/VERSION");
        return false;
    }
    return true;
}

static bool command_run(const char *format, const char *from, const char *to)
{
    char line[256];
    snprintf(line, sizeof(line), format, kBootMountPoint, from, gszUpgradeVolMnt, to);
    const int result = shell_run("%s", line);
    if (result != 0)
        NORV_LOG(LOG_ERR, "system(%s) fail [%d, %m]", line, result);
    return result == 0;
}

static bool NORVJCustBootInstall()
{
    return command_run("/usr/bin/xz -cd %s/%s > %s/%s", "hda1.tgz", "NorvUpgrade.tar") &&
           command_run("/bin/cp %s/%s %s/%s", "updater", ".updater");
}

static int boot_patch_install(int mode, char *mount_out, size_t size, InstallProgress progress)
{
    if (!NORVJCustBootPatchOK()) {
        NORV_LOG(LOG_ERR, "NORVJCustBootPatchOK(%s) fail", kBootMountPoint);
        progress(kStageCheckBoot, kCodeBootPatch, 0);
        return -1;
    }
    if (FormatPartition(mode, mount_out, size, progress) != 0) {
        NORV_LOG(LOG_ERR, "FormatPartition fail");
        return -1;
    }
    if (!NORVJCustBootInstall()) {
        NORV_LOG(LOG_ERR, "NORVJCustBootInstall(%s, %s) fail", kBootMountPoint, gszUpgradeVolMnt);
        progress(kStageInstall, kCodeBootInstall, 0);
        return -1;
    }
    shutdown_mark_clean();
    return 0;
}

int BuildinInstall(int mode, char *mount_out, size_t size, InstallProgress progress)
{
    progress(kStageCheckBoot, 0, 0);
    int result = -1;
    if (MountBootPartition() == 0) {
        result = boot_patch_install(mode, mount_out, size, progress);
    } else {
        NORV_LOG(LOG_ERR, "Failed to mount boot partition");
        progress(kStageCheckBoot, kCodeBootMount, 0);
    }
    if (UmountBootPartition() != 0)
        NORV_LOG(LOG_ERR, "fail to lock boot partition");
    return result;
}

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "install/recoverable.h"
#include "install/system_status.h"
#include "install/volume.h"
#include "lib/conf.h"
#include "lib/globals.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/text.h"

static constexpr int kFsckUncorrected = 4, kFsckFailed = 8; // e2fsck(8), EXIT CODE

static void devices_read()
{
    char system_device[32] = "", data_device[32] = "";
    (void)disk_sys_device_path_get(system_device, sizeof(system_device));
    (void)disk_first_data_device_path_get(data_device, sizeof(data_device));
    if (gblSupportRaid == 0) {
        text_cut(gszUpgradeVolDev, data_device);
        text_cut(gszUpgradeVolMnt, "/volume1");
    }
    text_cut(gszSysDev, system_device);
    text_cut(gszDataDev, data_device);
}

// Whether a line of /proc/partitions ends with the name, where it first stands in the line.
static bool partition_is_listed(const char *name)
{
    const UniqueFile file(fopen("/proc/partitions", "re"));
    char line[256];
    while (file && fgets(line, sizeof(line), file.get()) != nullptr) {
        const char *found = strstr(line, name);
        if (found != nullptr && found[strlen(name)] == '\n')
            return true;
    }
    return false;
}

static bool arrays_exist()
{
    if (NLIBCConfIsHdSeries()) {
        if (partition_is_listed("md0"))
            return true;
        NORV_LOG(LOG_ERR, "SYSTEM_NOT_INSTALLED: Raid but md0 not exist");
        return false;
    }
    if (partition_is_listed("md0") && partition_is_listed("md1"))
        return true;
    NORV_LOG(LOG_ERR, "SYSTEM_NOT_INSTALLED: Raid but md0 or md1 not exist");
    return false;
}

static bool lost_found_has_entries()
{
    static constexpr char kPath[] = "/tmpRoot/lost+found";
    const UniqueDir folder(opendir(kPath));
    if (!folder) {
        if (errno == ENOENT)
            return false;
        NORV_LOG(LOG_ERR, "open %s dir fail %m", kPath);
        return true;
    }
    while (const dirent *entry = readdir(folder.get()))
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            return true;
    return false;
}

static bool IsLostFoundDirty()
{
    bool is_dirty = true;
    if (volume_mount(gszSysDev, kSystemMountPoint) == 0)
        is_dirty = lost_found_has_entries();
    else
        NORV_LOG(LOG_ERR, "Mount Device %s Fail", gszSysDev);
    volume_unmount(kSystemMountPoint);
    return is_dirty;
}

static bool file_system_is_sound()
{
    if (IsLostFoundDirty()) {
        NORV_LOG(LOG_ERR, "Check Lost and Found Fail");
        return false;
    }
    const int status = NLIBCExecl("/sbin/e2fsck", kForkNullStreams, "-pvf", "-C", "0", gszSysDev, nullptr);
    if (status == kFsckUncorrected || status == kFsckFailed) { // these values alone, not their bits
        NORV_LOG(LOG_ERR, "Fsck fail with %s, ret = %d\n", gszSysDev, status);
        return false;
    }
    if (IsLostFoundDirty()) {
        NORV_LOG(LOG_ERR, "Check Lost and Found Fail after fsck");
        return false;
    }
    return true;
}

// The status of the system that is mounted.
static SystemStatus mounted_system_status()
{
    disk_sys_info_fill();
    if (access("/tmpRoot/.restore_to_default", F_OK) == 0) {
        NORV_LOG(LOG_ERR, "SYSTEM_NOT_INSTALLED: .restore_to_default in disk");
        return SYSTEM_NOT_INSTALLED;
    }
    if (access("/tmpRoot/.system_crashed", F_OK) == 0) {
        NORV_LOG(LOG_ERR, "SYSTEM_CRASHED: .system_crashed in disk");
        return SYSTEM_CRASHED;
    }
    ulSysMigratType = system_migration_bits();
    if ((ulSysMigratType & kMigrateNvr) != 0) {
        NORV_LOG(LOG_ERR, "SYSTEM_CRASHED: Migrate between NVR and not NVR model");
        return SYSTEM_CRASHED;
    }
    if ((ulSysMigratType & kMigrateBits) != 0) {
        NORV_LOG(LOG_ERR, "SYSTEM_CRASHED: 64 to 32 bits");
        return SYSTEM_CRASHED;
    }
    if ((ulSysMigratType & kMigrateRootBlock) != 0) {
        NORV_LOG(LOG_ERR, "SYSTEM_NOT_INSTALLED: Migration with incompatible root block");
        return SYSTEM_NOT_INSTALLED;
    }
    gblSystemRecoverable = IsSystemRecoverable(kSystemMountPoint);
    NORV_LOG(LOG_ERR, "SYSTEM_NORMAL, [Recoverable=%d]", gblSystemRecoverable);
    return SYSTEM_NORMAL;
}

static SystemStatus system_partition_status()
{
    if (gblSupportRaid != 0 && !arrays_exist())
        return SYSTEM_NOT_INSTALLED;
    if (!file_system_is_sound()) {
        NORV_LOG(LOG_ERR, "SYSTEM_CRASHED: lost+found or fsck failed");
        return SYSTEM_CRASHED;
    }
    if (volume_mount(gszSysDev, kSystemMountPoint) != 0) {
        NORV_LOG(LOG_ERR, "SYSTEM_CRASHED: Mount Failed");
        return SYSTEM_CRASHED;
    }
    const SystemStatus status = mounted_system_status();
    volume_unmount(kSystemMountPoint);
    return status;
}

static void FillUpgradeVolumeInfo()
{
    char system_device[32] = "";
    (void)disk_sys_device_path_get(system_device, sizeof(system_device));
    gblUpgradeVol = gblSupportRaid != 0 ? 0 : 1;
    text_cut(gszUpgradeVolDev, system_device);
    text_cut(gszUpgradeVolMnt, "/tmpData");
    NORV_LOG_CALL(LOG_ERR, "(%s): gszUpgradeVolDev = %s \n", __func__, gszUpgradeVolDev);
    fprintf(stderr, "%s:%d(%s): gszUpgradeVolDev = %s \n", __FILE_NAME__, __LINE__, __func__, gszUpgradeVolDev);
    NORV_LOG_CALL(LOG_ERR, "(%s): gszUpgradeVolMnt = %s \n", __func__, gszUpgradeVolMnt);
    fprintf(stderr, "%s:%d(%s): gszUpgradeVolMnt = %s \n", __FILE_NAME__, __LINE__, __func__, gszUpgradeVolMnt);
}

void DetectSysStatus()
{
    devices_read();
    const bool are_partitions_known = system_partitions_are_known();
    gSysStatus = system_partition_status();
    if (!are_partitions_known && gblSystemRecoverable == 0) {
        gSysStatus = SYSTEM_NOT_INSTALLED;
        NORV_LOG(LOG_ERR, "SYSTEM_NOT_INSTALLED: Not NorvParitition and Not Recoverable");
    }
    if (gSysStatus == SYSTEM_NOT_INSTALLED && gblSupportRaid == 0)
        gblCreateDataVol = 1;
    FillUpgradeVolumeInfo();
    NORV_LOG(LOG_ERR, "gblSupportRaid: %d, gSysStatus: %d, gblCreateDataVol: %d, gblSystemRecoverable: %d",
             gblSupportRaid, gSysStatus, gblCreateDataVol, gblSystemRecoverable);
}

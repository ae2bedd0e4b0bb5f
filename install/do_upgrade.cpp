#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "install/patch.h"
#include "install/patch_space.h"
#include "install/shell.h"
#include "install/system_status.h"
#include "install/volume.h"
#include "lib/cksum/cksum.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/norvarchive.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/text.h"

// Where the upgrade works, below the mounted volume.
static char gszPatchPath[PATH_MAX], gszPatchDir[PATH_MAX], gszPatchVersion[PATH_MAX];

static constexpr int kStrict = 1;
static constexpr long kSkipNanoFirst = 24897, kSkipNanoLast = 39999; // builds

// False when there is no volume, or the paths do not fit: cut ones would name something else to remove.
static bool paths_set(const char *mount)
{
    if (mount == nullptr)
        return false;
    snprintf(gszPatchPath, sizeof(gszPatchPath), "%s/upd@te.pat", mount);
    snprintf(gszPatchDir, sizeof(gszPatchDir), "%s/upd@te", mount);
    return static_cast<size_t>(snprintf(gszPatchVersion, sizeof(gszPatchVersion), "%s/upd@te/VERSION", mount)) <
           sizeof(gszPatchVersion);
}

void update_progress_set(int code)
{
    if (code == 0) {
        unlink(kUpdateProgressPath);
        return;
    }
    char text[32];
    const int length = snprintf(text, sizeof(text), "A:%d:", code);
    {
        const UniqueFd file(open(kUpdateProgressPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (!file || write(file.get(), text, static_cast<size_t>(length) + 1) != length + 1) // its NUL too
            NORV_LOG(LOG_ERR, "Failed to open %s", kUpdateProgressPath);
    }
    sync();
}

int file_touch_flushed(const char *path)
{
    {
        const UniqueFd file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (!file) {
            NORV_LOG(LOG_ERR, "Failed to open %s", path);
            return -1;
        }
    }
    sync();
    return 0;
}

static void RemoveUpgradeFile()
{
    syslog(LOG_ERR, "%s: Remove %s...", __func__, gszPatchPath);
    if (unlink(gszPatchPath) != 0)
        NORV_LOG(LOG_ERR, "Failed to unlink [%s][%m]", gszPatchPath);
}

void ErrFHOSTCleanPatchDirFile()
{
    (void)shell_run("/bin/rm -rf %s > /dev/null 2>&1", gszPatchDir);
    unlink(gszPatchPath);
}

static bool files_are_same(const char *a, const char *b)
{
    struct stat first, second;
    return stat(a, &first) == 0 && stat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// Moves the patch to where it is worked on; one that is there stays.
static bool patch_move(const char *path, const char *mount)
{
    if (paths_set(mount)) {
        if (files_are_same(path, gszPatchPath))
            return true;
        unlink(gszPatchPath);
        const int status = NLIBCExecl("/bin/mv", kForkNullStreams, path, gszPatchPath, nullptr);
        if (status == 0)
            return true;
        if (status > 0)
            fail(kErrChild);
    } else {
        fail(kErrBadParameter);
    }
    fprintf(stderr, "%s:%d Failed to mv %s to %s, NorvErr =[0x%04X %s:%d]\n", __FILE_NAME__, __LINE__, path,
            gszPatchPath, NORV_ERR_ARGS);
    fprintf(stderr, "%s:%d Fail to MoveFile from %s to %s\n", __FILE_NAME__, __LINE__, path, gszPatchPath);
    return false;
}

static void shell_run_or_log(const char *format, const char *word)
{
    char line[PATH_MAX + 64];
    snprintf(line, sizeof(line), format, word);
    if (shell_run("%s", line) != 0)
        syslog(LOG_ERR, "Fail to system(%s)", line);
}

// The old form: a tar with a signature among its members.
static bool ExtractTarUpgradeFile()
{
    NORV_LOG(LOG_ERR, "Extracting Old Patch Format [%s][%s]", gszPatchPath, gszPatchDir);
    if (shell_run("/bin/tar xpf \"%s\" -C %s > /dev/null 2>&1", gszPatchPath, gszPatchDir) != 0)
        return false;
    syslog(LOG_ERR, "Verify codesign of [%s]...", gszPatchDir);
    if (shell_run("/usr/norv/bin/norvcodesign %s > /dev/null 2>&1", gszPatchDir) == 0)
        return true;
    syslog(LOG_ERR, "%s: Fail to verify codesign of %s...", __func__, gszPatchDir);
    return false;
}

static bool patch_extract()
{
    shell_run_or_log("/bin/rm -rf %s > /dev/null 2>&1", gszPatchDir);
    shell_run_or_log("/bin/mkdir -p %s > /dev/null 2>&1", gszPatchDir);
    bool is_extracted = ExtractTarUpgradeFile();
    if (!is_extracted) {
        NORV_LOG(LOG_ERR, "Extracting NorvArchive");
        is_extracted = NorvArchiveExtractSystem(gszPatchPath, gszPatchDir) == kNorvArchiveGood;
        if (!is_extracted)
            NORV_LOG(LOG_ERR, "Extraction failed [%s][%s]", gszPatchPath, gszPatchDir);
    }
    RemoveUpgradeFile();
    return is_extracted;
}

static bool ErrFHOSTCheckUpgradeFile()
{
    syslog(LOG_ERR, "Verify checksum of [%s]...", gszPatchDir);
    const int result = CheckDirChecksum(gszPatchDir, kStrict);
    if (result == kChecksumGood) {
        syslog(LOG_ERR, "Pass checksum of %s...", gszPatchDir);
        return true;
    }
    syslog(LOG_ERR, "%s: Fail to verify checksum of %s...(retv=0x%X)", __func__, gszPatchDir,
           static_cast<unsigned>(result));
    return false;
}

// A patch that names no model is not held against this one's; one whose model does not fit its room is another's.
static int model_check()
{
    char patch[33], own[33];
    const int found = NLIBCFileGetKeyValue(gszPatchVersion, "unique", patch, sizeof(patch), 0);
    if (found == 0)
        return kPatchGood;
    if (NLIBCFileGetKeyValue(kDefaultsPath, "unique", own, sizeof(own), 0) <= 0)
        return kPatchOwnModelUnknown;
    return found > 0 && strcmp(patch, own) == 0 ? kPatchGood : kPatchOtherModel;
}

static int compatibility_check()
{
    const int result = model_check();
    if (result != kPatchGood)
        return result;
    return NLIBCConfIsHdSeries() || CheckPartitionVersion(gszPatchVersion) == 1 ? kPatchGood : kPatchPartitionVersion;
}

static bool space_suffices()
{
    char system_device[32];
    if (disk_sys_device_path_get(system_device, sizeof(system_device)) != 0 ||
        strcmp(gszUpgradeVolDev, system_device) != 0)
        return true;
    return patch_fits_device(gszPatchDir, gszPatchVersion, gszUpgradeVolDev);
}

static int updater_run(const char *mount)
{
    char line[2 * PATH_MAX];
    snprintf(line, sizeof(line), "%s/updater -v %s > /dev/null 2>&1", gszPatchDir, mount);
    const int status = shell_run("%s", line);
    const int exit_status = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    NORV_LOG(LOG_ERR, "Executing [%s] error[%d]", line, exit_status);
    if (exit_status == 0)
        return kPatchGood;
    int result = -exit_status;
    if (exit_status == 255)
        result = kPatchUpdaterRefused;
    else if (exit_status < 0)
        result = kPatchFailed;
    update_progress_set(result);
    return result;
}

// Keeps the updater for the configuration's own upgrade.
static void updater_keep()
{
    if (volume_mount(gszSysDev, kSystemMountPoint) != 0) {
        NORV_LOG(LOG_ERR, "failed mount %s %s.", gszSysDev, kSystemMountPoint);
    } else {
        char line[PATH_MAX + 64];
        snprintf(line, sizeof(line), "/bin/mv -f %s/updater /tmpRoot/.updater > /dev/null 2>&1", gszPatchDir);
        (void)shell_run("%s", line);
        NORV_LOG(LOG_ERR, "Moving updater for configuration upgrade...cmd=[%s]", line);
    }
    volume_unmount(kSystemMountPoint);
}

// Keeps the new system from updating itself at once, where that is wanted.
static void small_update_skip()
{
    char text[32];
    if (access("/tmp/.skip_auto_nano", F_OK) != 0 ||
        NLIBCFileGetKeyValue(gszPatchVersion, "buildnumber", text, sizeof(text), 0) <= 0)
        return;
    const long build = strtol(text, nullptr, 10);
    if (build < kSkipNanoFirst || build > kSkipNanoLast)
        return;
    if (MountPartition(gszSysDev, kSystemMountPoint) == 1) {
        (void)shell_run("%s", "/bin/mkdir -p /tmpRoot/var");
        file_touch_flushed("/tmpRoot/var/.SkipAutoSmallupdate");
        (void)shell_run("%s", "/bin/umount -l /tmpRoot > /dev/null 2>&1");
    }
    NORV_LOG(LOG_ERR, "skip auto nano");
}

void shutdown_mark_clean()
{
    if (volume_mount(gszSysDev, "/mnt") == 0) {
        (void)shell_run("%s", "/bin/mkdir /mnt/var");
        file_touch_flushed("/mnt/var/.NormalShutdown");
        unlink("/mnt/.noroot");
    }
    volume_unmount("/mnt");
}

// All that stands between the moved patch and the end of the upgrade.
static int upgrade(const char *mount)
{
    if (conf_supportsas() && access("/.sas_fw_upgrade_fail", F_OK) == 0) {
        update_progress_set(kPatchSasFirmware);
        ErrFHOSTCleanPatchDirFile();
        return kPatchSasFirmware;
    }
    if (!patch_extract()) {
        update_progress_set(kPatchCannotUnpack);
        NORV_LOG(LOG_ERR, "set error code [%d]", kPatchCannotUnpack);
        ErrFHOSTCleanPatchDirFile();
        return kPatchCannotUnpack;
    }
    if (!ErrFHOSTCheckUpgradeFile()) {
        update_progress_set(kPatchCannotUnpack);
        ErrFHOSTCleanPatchDirFile();
        return kPatchCannotUnpack;
    }
    int result = compatibility_check();
    if (result != kPatchGood) {
        ErrFHOSTCleanPatchDirFile();
        update_progress_set(result);
        return result;
    }
    if (!space_suffices()) {
        update_progress_set(kPatchNoSpace);
        ErrFHOSTCleanPatchDirFile();
        NORV_LOG_OLD(LOG_ERR, "ErrFHOSTDoUpgrade", ": child process failed, retv=%d", kPatchNoSpace);
        return kPatchNoSpace;
    }
    result = updater_run(mount);
    if (gSysStatus == SYSTEM_NORMAL)
        updater_keep();
    small_update_skip();
    ErrFHOSTCleanPatchDirFile();
    if (result != kPatchGood)
        NORV_LOG_OLD(LOG_ERR, "ErrFHOSTDoUpgrade", ": child process failed, retv=%d", result);
    return result;
}

int ErrFHOSTDoUpgrade(const char *path, const char *mount)
{
    if (!patch_move(path, mount))
        return kPatchFailed;
    text_cut(gszUpgradeVolMnt, mount);
    update_progress_set(0);
    const int result = upgrade(mount);
    NORV_LOG_CALL(LOG_ERR, "(%s) err=[%d]", __func__, result); // the one on record
    NORV_LOG_CALL(LOG_ERR, "(%s) retv=[%d]", __func__, result);
    if (result == kPatchGood)
        shutdown_mark_clean();
    else
        NORV_LOG(LOG_ERR, "Failed to unpack firmware.\n");
    return result;
}

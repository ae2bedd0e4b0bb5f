#include <cstdio>
#include <fcntl.h>
#include <getopt.h>
#include <iterator>

#include "applets/applets.h"
#include "applets/banner.h"
#include "autocleanup/unique.h"
#include "install/download.h"
#include "install/format.h"
#include "install/install_lock.h"
#include "install/patch.h"
#include "install/recoverable.h"
#include "install/system_status.h"
#include "install/volume.h"
#include "lib/report.h"

// --download, --start and --parse stand here alone: they are no options any more.
static constexpr char kUsage[] = "\t--auto\n"
                                 "\t--check For fresh install\n"
                                 "\t--check-migrate For disk migration\n"
                                 "\t--check-reinstall For disk migration reinstall or system crash\n"
                                 "\t--download\n"
                                 "\t--start\n"
                                 "\t--parse\n"
                                 "\t--patch ABSOULATE_UPGRADE_FILE_PATH ABSOLUATE_UPGRADE_VOLUME\n"
                                 "\t        ex: norvupgrade --patch /tmpRoot/upd@te.pat /tmpRoot\n"
                                 "\t--buildin-install\n"
                                 "\t--check-system\n"
                                 "\t--recover\n";

// A line for the terminal.
#define TELL(format, ...) printf("%s:%d " format, __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

static void progress(int stage, unsigned code, unsigned long value)
{
    fprintf(stderr, "%d %u %lu", stage, code, value);
}

// The lock of an install; empty, and told, when it cannot be had.
static UniqueFd lock_take()
{
    UniqueFd lock;
    const LockOutcome outcome = install_lock_take(O_CLOEXEC, &lock);
    if (outcome == LockOutcome::kNoFile)
        NORV_LOG(LOG_ERR, "create lock file fail");
    else if (outcome == LockOutcome::kHeld)
        NORV_LOG(LOG_ERR, "Get file lock fail");
    if (!lock)
        progress(kStageFailed, kCodeLock, 0);
    return lock;
}

// A fresh install in one of the ways that mount the volume themselves. It is unmounted again.
static int fresh_install(int (*install)(int mode, char *mount_out, size_t size, InstallProgress progress))
{
    const UniqueFd lock = lock_take();
    if (!lock)
        return -1;
    char mount[sizeof(gszUpgradeVolMnt)] = "";
    const int result = install(0, mount, sizeof(mount), progress);
    if (mount[0] != '\0')
        volume_unmount(mount);
    return result;
}

static int auto_run(char * /*arguments*/[])
{
    static_assert(kDownloadFresh == 0);
    return fresh_install(DownloadAndInstall);
}

static int buildin_install_run(char * /*arguments*/[])
{
    return fresh_install(BuildinInstall);
}

static int check_run(char * /*arguments*/[])
{
    return CheckNewVersionCgi(kDownloadFresh);
}

static int check_reinstall_run(char * /*arguments*/[])
{
    return CheckNewVersionCgi(kDownloadReinstall);
}

static int check_migrate_run(char * /*arguments*/[])
{
    return CheckNewVersionCgi(kDownloadMigrate);
}

// Takes the patch and the volume. Without a volume the patch is checked, and cannot be moved.
static int patch_run(char *arguments[])
{
    const UniqueFd lock = lock_take();
    if (lock && InstallPatch(arguments[0], arguments[1], progress) == 0)
        return 0;
    TELL("Upgrade by the manual patch [%s] fail.\n", arguments[0]);
    return -1;
}

static int check_system_run(char * /*arguments*/[])
{
    return CheckSysStatus();
}

static int recover_run(char * /*arguments*/[])
{
    return recover_flash();
}

struct UpgradeMode {
    const char *option;
    int arguments_min;
    int (*run)(char *arguments[]);  // those behind the option, up to a NULL; 0 is success
    const char *succeeded, *failed; // told at the end; empty: nothing
};
static constexpr UpgradeMode kModes[] = {
    {"auto", 0, auto_run, "", "Auto Upgrade Fail.\n"},
    {"check", 0, check_run, "", "Check New NOS for [Install] Fail.\n"},
    {"check-reinstall", 0, check_reinstall_run, "", "Check New NOS for [Reinstall] Fail.\n"},
    {"check-migrate", 0, check_migrate_run, "", "Check New NOS for [Migration] Fail.\n"},
    {"patch", 1, patch_run, "Patch Upgrade Success and please wait for reboot finish.\n",
     "Upgrade by the manual patch fail.\n"},
    {"buildin-install", 0, buildin_install_run, "Success to upgrade by the buildin patch.\n",
     "Upgrade by the buildin patch fail.\n"},
    {"check-system", 0, check_system_run, "", ""},
    {"recover", 0, recover_run, "", ""},
};

static int mode_run(const UpgradeMode &mode, int argc, char *argv[])
{
    if (argc < mode.arguments_min) {
        TELL("Too few arguement.\n");
        return -1;
    }
    const int result = mode.run(argv);
    const char *outcome = result == 0 ? mode.succeeded : mode.failed;
    if (*outcome != '\0')
        TELL("%s", outcome);
    return result;
}

int norvupgrade_main(int argc, char *argv[])
{
    int mode = 0; // row number, from 1
    option options[std::size(kModes) + 1] = {};
    for (int i = 0; const UpgradeMode &row : kModes) {
        options[i] = {row.option, no_argument, &mode, i + 1};
        i++;
    }
    if (getopt_long_only(argc, argv, "", options, nullptr) == 0 && mode != 0)
        return mode_run(kModes[mode - 1], argc - optind, argv + optind);
    banner_print();
    fflush(stdout);
    fputs(kUsage, stderr);
    return 0;
}

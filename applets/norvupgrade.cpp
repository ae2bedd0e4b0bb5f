#include <cstdio>
#include <fcntl.h>
#include <getopt.h>
#include <iterator>
#include <sys/file.h>

#include "applets/applets.h"
#include "applets/banner.h"
#include "autocleanup/unique.h"
#include "install/download.h"
#include "install/format.h"
#include "install/install_lock.h"
#include "install/patch.h"
#include "install/recoverable.h"
#include "install/system_status.h"
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
static UniqueFd install_lock_take()
{
    UniqueFd lock(open(kInstallLockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!lock)
        NORV_LOG(LOG_ERR, "create lock file fail");
    else if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        NORV_LOG(LOG_ERR, "Get file lock fail");
        lock.reset();
    }
    if (!lock)
        progress(kStageFailed, kCodeLock, 0);
    return lock;
}

static int auto_run(int /*argc*/, char * /*argv*/[])
{
    char mount[sizeof(gszUpgradeVolMnt)] = "";
    const UniqueFd lock = install_lock_take();
    if (lock && DownloadAndInstall(kDownloadFresh, mount, sizeof(mount), progress) == 0)
        return 0;
    TELL("Auto Upgrade Fail.\n");
    return -1;
}

static int check_run(int /*argc*/, char * /*argv*/[])
{
    if (CheckNewVersionCgi(kDownloadFresh) == 0)
        return 0;
    TELL("Check New NOS for [Install] Fail.\n");
    return -1;
}

static int check_reinstall_run(int /*argc*/, char * /*argv*/[])
{
    if (CheckNewVersionCgi(kDownloadReinstall) == 0)
        return 0;
    TELL("Check New NOS for [Reinstall] Fail.\n");
    return -1;
}

static int check_migrate_run(int /*argc*/, char * /*argv*/[])
{
    if (CheckNewVersionCgi(kDownloadMigrate) == 0)
        return 0;
    TELL("Check New NOS for [Migration] Fail.\n");
    return -1;
}

// The arguments of a mode are those behind the options.
static int patch_run(int argc, char *argv[])
{
    if (argc < 1) {
        TELL("Too few arguement.\n");
        return -1;
    }
    const UniqueFd lock = install_lock_take();
    if (lock && InstallPatch(argv[0], argc > 1 ? argv[1] : nullptr, progress) == 0) {
        TELL("Patch Upgrade Success and please wait for reboot finish.\n");
        return 0;
    }
    TELL("Upgrade by the manual patch [%s] fail.\n", argv[0]);
    TELL("Upgrade by the manual patch fail.\n");
    return -1;
}

static int buildin_install_run(int /*argc*/, char * /*argv*/[])
{
    char mount[sizeof(gszUpgradeVolMnt)] = "";
    const UniqueFd lock = install_lock_take();
    if (lock && BuildinInstall(0, mount, sizeof(mount), progress) == 0) {
        TELL("Success to upgrade by the buildin patch.\n");
        return 0;
    }
    TELL("Upgrade by the buildin patch fail.\n");
    return -1;
}

static int check_system_run(int /*argc*/, char * /*argv*/[])
{
    return CheckSysStatus();
}

static int recover_run(int /*argc*/, char * /*argv*/[])
{
    return recover_flash();
}

struct UpgradeMode {
    const char *option;
    int (*run)(int argc, char *argv[]);
};
static constexpr UpgradeMode kModes[] = {
    {"auto", auto_run},
    {"check", check_run},
    {"check-reinstall", check_reinstall_run},
    {"check-migrate", check_migrate_run},
    {"patch", patch_run},
    {"buildin-install", buildin_install_run},
    {"check-system", check_system_run},
    {"recover", recover_run},
};

int norvupgrade_main(int argc, char *argv[])
{
    int mode = 0; // row number, from 1
    option options[std::size(kModes) + 1] = {};
    for (int i = 0; const UpgradeMode &row : kModes) {
        options[i] = {row.option, no_argument, &mode, i + 1};
        i++;
    }
    if (getopt_long_only(argc, argv, "", options, nullptr) == 0 && mode != 0) {
        return kModes[mode - 1].run(argc - optind, argv + optind);
    }
    banner_print();
    fflush(stdout);
    fputs(kUsage, stderr);
    return 0;
}

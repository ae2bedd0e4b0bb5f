#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "findhost/findhost.h"
#include "install/install_lock.h"
#include "install/system_status.h"
#include "lib/file_replace.h"
#include "lib/report.h"

static constexpr char kCacheKey[] = "fhost_status_static_part";

static bool cached_status_get(int *status)
{
    char text[32];
    if (RootInfoCacheGet(kCacheKey, text, sizeof(text)) != 1)
        return false;
    char *end = nullptr;
    errno = 0;
    const long number = strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0')
        return false;
    *status = static_cast<int>(number);
    return true;
}

static int detected_status()
{
    DetectSysStatus();
    switch (gSysStatus) {
    case SYSTEM_NORMAL:
        return gblSystemRecoverable != 0 ? kFhostRecoverable : kFhostMigratable;
    case SYSTEM_CRASHED:
        return kFhostCrashed;
    default:
        NORV_LOG(LOG_ERR, "unknown system status: %d", gSysStatus);
        [[fallthrough]];
    case SYSTEM_NOT_INSTALLED:
        return kFhostNotInstalled;
    }
}

static int lasting_status()
{
    int status = 0;
    if (cached_status_get(&status))
        return status;
    status = detected_status();
    char text[32];
    snprintf(text, sizeof(text), "%ld", static_cast<long>(status));
    if (RootInfoCacheSet(kCacheKey, text) != 0)
        NORV_LOG(LOG_ERR, "Failed to save system status cache");
    return status;
}

static int client_status()
{
    if (access("/.memtest", F_OK) == 0)
        return kFhostMemTesting;
    return IsInstallLocked() ? kFhostUpdating : lasting_status();
}

static void status_word_print(int status)
{
    static constexpr struct {
        int status;
        const char *word;
    } kWords[] = {
        {kFhostNotInstalled, "not_install"}, {kFhostUpdating, "updating"},           {kFhostCrashed, "sys_crash"},
        {kFhostMemTesting, "mem_testing"},   {kFhostRecoverable, "sys_recoverable"}, {kFhostMigratable, "sys_migrat"},
    };
    for (const auto &row : kWords)
        if (row.status == status) {
            fputs(row.word, stdout);
            return;
        }
    printf("%d", status);
}

static void disk_sys_info_write()
{
    static constexpr char kPath[] = "/tmp/disk_sysinfo";
    unlink(kPath);
    const DiskSysInfo &info = gDiskSysInfo;
    if (file_replace(kPath, R"({"model": "%s", "version": "%s", "build_num": %lu, "admin_port": %s})", info.model,
                     info.version, info.build_num, info.admin_port) != 0)
        NORV_LOG(LOG_ERR, "open %s file error [%m]", kPath);
}

void client_status_write(int status)
{
    static constexpr char kPath[] = "/tmp/fhost.status";
    if (file_replace(kPath, "%d", status) != 0)
        NORV_LOG(LOG_ERR, "Failed to write %s: %m", kPath);
}

int CheckSysStatus()
{
    gDiskSysInfo = {};
    const int status = client_status();
    client_status_write(status);
    status_word_print(status);
    fprintf(stderr, "%s:%d CheckSysStatus return %d\n", __FILE_NAME__, __LINE__, status);
    if (gDiskSysInfo.model[0] != '\0')
        disk_sys_info_write();
    return 0;
}

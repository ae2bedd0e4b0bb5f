#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "install/download.h"
#include "install/download_state.h"
#include "install/format.h"
#include "install/patch.h"
#include "install/shell.h"
#include "install/update_request.h"
#include "lib/file.h"
#include "lib/file_replace.h"
#include "lib/proc.h"
#include "lib/report.h"

static constexpr TransferNumber kOptions[] = {{CURLOPT_CONNECTTIMEOUT, 30},
                                              {CURLOPT_LOW_SPEED_LIMIT, 1},
                                              {CURLOPT_LOW_SPEED_TIME, 60},
                                              {CURLOPT_FOLLOWLOCATION, 1},
                                              {CURLOPT_NOPROGRESS, 0}};

// Whether the first word of a line of `ps` is this one.
static bool process_is_listed(const char *pid)
{
    FILE *list = NLIBCPopen("/bin/sh", "r", "-c", "ps", nullptr);
    if (list == nullptr)
        return false;
    char line[1024], word[32];
    bool is_listed = false, is_begin = true; // of a line: a long one comes in pieces
    while (fgets(line, sizeof(line), list) != nullptr) {
        is_listed = is_listed || (is_begin && sscanf(line, "%31s", word) == 1 && strcmp(word, pid) == 0);
        is_begin = strchr(line, '\n') != nullptr;
    }
    NLIBCPclose(list);
    return is_listed;
}

static bool download_is_running()
{
    if (!NLIBCFileIsRegular(kDownloadPidPath))
        return false;
    char pid[32];
    const UniqueFile file(fopen(kDownloadPidPath, "re"));
    if (!file || fscanf(file.get(), "%31s", pid) != 1) {
        NORV_LOG(LOG_ERR, "scanf %s fail [%m]", kDownloadPidPath);
        return false;
    }
    return process_is_listed(pid);
}

static bool path_clear(const char *path)
{
    struct stat status;
    if (lstat(path, &status) != 0)
        return errno == ENOENT;
    if (!S_ISDIR(status.st_mode))
        return unlink(path) == 0;
    return shell_run("/bin/rm -rf %s > /dev/null 2>&1", path) == 0;
}

// Removes what an earlier download left, also a patch elsewhere that its state names. Returns 0; -1.
static int ClearPosibleResult(const char *folder)
{
    bool is_clear = path_clear(folder);
    is_clear = path_clear("/@autoupdate") && is_clear;
    unlink(kDownloadPidPath);
    if (NLIBCFileIsRegular(kDownloadStatusPath)) {
        DownloadState state;
        if (download_state_read(&state) == 0)
            unlink(state.file);
        else
            is_clear = false;
    }
    return is_clear ? 0 : -1;
}

static int pid_write()
{
    if (file_replace(kDownloadPidPath, "%d", getpid()) != 0) {
        NORV_LOG(LOG_ERR, "Open %s Fail\n", kDownloadPidPath);
        return -1;
    }
    return 0;
}

// Fetches the patch into a folder that it makes; `file` receives its path.
static int patch_fetch(const char *folder, const char *link, char *file, size_t size)
{
    if (pid_write() != 0)
        return -1;
    if (mkdir(folder, 0700) != 0) {
        NORV_LOG(LOG_ERR, "Fail to mkdir %s: %m", folder);
        return -1;
    }
    const char *name = base_name(link);
    if (*name == '\0' || static_cast<size_t>(snprintf(file, size, "%s/%s", folder, name)) >= size) {
        NORV_LOG(LOG_ERR, "Get out file path fail %m\n");
        return -1;
    }
    if (download_state_begin(file, link) != 0)
        return -1;
    return UrlFetch(file).perform(link, kOptions, download_progress);
}

static int patch_download(const char *mount, const char *link, char *file, size_t size)
{
    if (download_is_running()) {
        NORV_LOG(LOG_ERR, "Is Downloading, no need to Download");
        return -1;
    }
    char folder[64];
    snprintf(folder, sizeof(folder), "%s//@autoupdate", mount);
    if (ClearPosibleResult(folder) != 0) {
        NORV_LOG(LOG_ERR, "ClearPosibleResult(%s) Fail", mount);
        return -1;
    }
    const int result = patch_fetch(folder, link, file, size);
    unlink(kDownloadPidPath);
    unlink("/var/run/downloadprogress");
    return result;
}

int DownloadAndInstall(int mode, char *mount_out, size_t size, InstallProgress progress)
{
    if (FormatPartition(mode == kDownloadMigrate ? 1 : 0, mount_out, size, progress) != 0) {
        NORV_LOG(LOG_ERR, "FormatPartition fail");
        return -1;
    }
    progress(kStageDownloadFeed, 0, 0);
    NewVersion version;
    if (CheckNewVersion(mode, &version) != 0) {
        progress(kStageDownloadFeed, kCodeDownload, 0);
        return -1;
    }
    progress(kStageDownload, 0, 0);
    char file[PATH_MAX];
    if (patch_download(mount_out, version.link, file, sizeof(file)) != 0) {
        progress(kStageDownload, kCodeDownload, 0);
        return -1;
    }
    return patch_upgrade(file, mount_out, progress);
}

#include "install/download_state.h"

#include <csignal>
#include <cstdio>
#include <sys/file.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "install/progress.h"
#include "lib/file.h"
#include "lib/file_replace.h"
#include "lib/report.h"
#include "lib/text.h"

static constexpr int kLockTries = 150;
static constexpr useconds_t kLockPauseUs = 10000;

// Of the download of this process; libcurl is given no place of its own to keep them.
static const char *current_file = "", *current_link = "";
static int current_percent = -1;

static bool lock_take(int fd)
{
    for (int tries_left = kLockTries; flock(fd, LOCK_EX | LOCK_NB) != 0; tries_left--) {
        if (tries_left == 0) {
            NORV_LOG(LOG_ERR, "Failed to get lock\n");
            return false;
        }
        usleep(kLockPauseUs);
    }
    return true;
}

int download_state_read(DownloadState *state)
{
    *state = {};
    const UniqueFile file(fopen(kDownloadStatusPath, "re"));
    if (file && !lock_take(fileno(file.get())))
        return fail(kErrLockTimeout);
    static_assert(sizeof(state->file) == 4096 && sizeof(state->link) == 4096);
    const int fields =
        file ? fscanf(file.get(), "%d %ld %4095s %4095s", &state->percent, &state->bytes, state->file, state->link)
             : -1;
    if (fields != 4) {
        NORV_LOG(LOG_ERR, "Failed to get process status for %s, ret = %d, errno = %m\n", kDownloadStatusPath, fields);
        return fail(kErrBadFormat);
    }
    NORV_LOG(LOG_ERR, "Percent = %d, Process = %d, FilePath = %s, FileLink = %s\n\n", state->percent,
             static_cast<int>(state->bytes), state->file, state->link);
    if (state->percent < 0 || state->bytes < 0) {
        NORV_LOG(LOG_ERR, "Invalid status value for %s.\n", kDownloadStatusPath);
        return fail(kErrBadFormat);
    }
    return 0;
}

bool download_is_alive()
{
    int pid = 0;
    const UniqueFile file(NLIBCFileIsRegular(kDownloadPidPath) ? fopen(kDownloadPidPath, "re") : nullptr);
    if (file && fscanf(file.get(), "%d", &pid) == 1 && pid > 0 && kill(pid, 0) == 0)
        return true;
    NORV_LOG(LOG_ERR, "Invalid pid: %d\n", pid);
    return false;
}

int download_state_begin(const char *file, const char *link)
{
    current_file = file;
    current_link = link;
    current_percent = -1;
    if (file_replace(kDownloadStatusPath, "0 0 %s %s", file, link) == 0)
        return 0;
    NORV_LOG(LOG_ERR, "Failed to write %s: %m", kDownloadStatusPath);
    return -1;
}

int download_progress(void * /*unused*/, long total, long now, long /*upload_total*/, long /*upload_now*/)
{
    const int percent =
        total == 0 ? 0 : static_cast<int>(static_cast<double>(now) * 100.0 / static_cast<double>(total));
    if (percent == current_percent)
        return 0;
    current_percent = percent;
    if (file_replace(kInstallProgressPath,
                     "Content-type: text/html; charset=\"UTF-8\"\r\n\r\n"
                     "{\"success\": true, \"data\": {\"stage\": \"%s\", \"progress\": \"%d\"}}",
                     "download", percent) != 0)
        NORV_LOG(LOG_ERR, "Open %s Fail\n", kInstallProgressPath);
    if (file_replace(kDownloadStatusPath, "%d %ld %s %s", percent, now, current_file, current_link) != 0)
        NORV_LOG(LOG_ERR, "Open %s Fail\n", kDownloadStatusPath);
    return 0;
}

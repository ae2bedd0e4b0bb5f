// What a download leaves in /var/run: how far it is, and who does it.
#pragma once

#include <climits>

inline constexpr char kDownloadStatusPath[] = "/var/run/downloadNOS.status"; // one line: the fields of DownloadState
inline constexpr char kDownloadPidPath[] = "/var/run/downloadNOS.pid";       // decimal text

struct DownloadState {
    int percent;
    long bytes;
    char file[PATH_MAX]; // the patch, on this machine
    char link[PATH_MAX]; // where it comes from
};

// Reads the state, under a lock that is tried for for 1.5 seconds. Returns 0; -1, logged, without the lock or when the
// file does not hold all fields.
[[nodiscard]] int download_state_read(DownloadState *state);

// Whether the process that downloads lives. When it does not, the pid that there is, or 0, is logged.
[[nodiscard]] bool download_is_alive();

// Begins the state of a download. The file is there as a whole or not at all. Returns 0; -1, logged.
[[nodiscard]] int download_state_begin(const char *file, const char *link);

// The progress function of libcurl: tells a new percentage in the state and to the web page. Never cancels.
int download_progress(void *unused, long total, long now, long upload_total, long upload_now);

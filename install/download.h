// Asking the update server for a newer system, and installing it from there.
#pragma once

#include <cstddef>

#include "install/progress.h"

// What a check is made for.
enum DownloadMode : int { kDownloadFresh = 0, kDownloadReinstall = 1, kDownloadMigrate = 2 };

// The newest patch for this machine; `checksum` is not held against the patch by anyone here.
struct NewVersion {
    char link[4095], checksum[4095], version[4095];
};

// Asks the server. Puts away what a dead download left, unless it was whole. Returns 0, `result` filled, its link empty
// when the feed ends early; -1, logged.
[[nodiscard]] int CheckNewVersion(int mode, NewVersion *result);

// CheckNewVersion for a program of the web server: sets the clock to `utctime` of QUERY_STRING, tells the result on
// standard output. Returns 0; -1.
[[nodiscard]] int CheckNewVersionCgi(int mode);

// The whole way over the network: formats the disks as FormatPartition, asks the server, fetches the patch to the
// volume and installs it. Failures are told by `progress`.
//   mode       a DownloadMode; a migration keeps what the disks hold
//   mount_out  receives where the volume is mounted; it stays so
// Returns 0; -1.
int DownloadAndInstall(int mode, char *mount_out, size_t size, InstallProgress progress);

// Making the disks ready for a patch, and the ways to install one that is at hand.
#pragma once

#include <cstddef>

#include "install/progress.h"

// Looks at the disks, formats them unless `migrate` is exactly 1, and mounts the volume that receives the patch.
//   mount_out  receives where, gszUpgradeVolMnt
// Failures are told by `progress`. Returns 0; -1.
int FormatPartition(int migrate, char *mount_out, size_t size, InstallProgress progress);

// Has installer.sh partition and format the disks. `status` is a SystemStatus. Returns 0; the script's exit status.
int ErrFHOSTDoFdiskFormat(int createDataVol, int status);

// Installs the patch that the boot flash carries; `mode` and `mount_out` as of FormatPartition. Returns 0; -1.
int BuildinInstall(int mode, char *mount_out, size_t size, InstallProgress progress);

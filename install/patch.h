// Taking a firmware patch: is it for this machine, unpack it, hand the machine over to its updater.
#pragma once

#include "install/progress.h"

// Negative results of these operations; others are minus the exit status of the patch's updater.
enum PatchResult : int {
    kPatchGood = 0,
    kPatchFailed = -1,
    kPatchOwnModelUnknown = -8,
    kPatchUpdaterRefused = -10,
    kPatchOtherModel = -12,
    kPatchCannotUnpack = -13,
    kPatchNoSpace = -16,
    kPatchSasFirmware = -21, // an earlier upgrade of the SAS firmware failed
    kPatchLicence = -65,     // from the updater
    kPatchPartitionVersion = -70,
};

// A failure that other programs may read of, as "A:<code>:" and a NUL. Setting 0 removes the file.
inline constexpr char kUpdateProgressPath[] = "/tmp/update.progress";
void update_progress_set(int code);

// Checks a patch and installs it on the volume that is mounted. Failures are told by `progress` in stage 5. Returns 0;
// -1.
int InstallPatch(const char *path, const char *mount, InstallProgress progress);

// Whether a patch is for this machine and its disks' layout. Its VERSION stays beside it. Returns a PatchResult.
[[nodiscard]] int IsPatchCompatible(const char *path);

// Moves a patch to the volume, unpacks and verifies it there and runs its updater. The patch is gone afterwards,
// whatever happened, unless it could not be moved. Returns a PatchResult.
[[nodiscard]] int ErrFHOSTDoUpgrade(const char *path, const char *mount);

// The same, told by `progress` in stage 5. Returns 0; -1.
int patch_upgrade(const char *path, const char *mount, InstallProgress progress);

// Whether a patch takes the layout that the disks have. Returns 1 or 0.
[[nodiscard]] int CheckPartitionVersion(const char *version_path);

// Removes the unpacked patch and the patch from the volume that the last upgrade worked on.
void ErrFHOSTCleanPatchDirFile();

// Makes or empties a file with mode 0644 and flushes it. Returns 0; -1, logged.
int file_touch_flushed(const char *path);

// Notes on the system volume that it was left in order, so that its next start does not check it.
void shutdown_mark_clean();

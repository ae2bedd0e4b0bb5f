// Whether the boot flash can be brought in line with the system that the disks hold.
#pragma once

// While it exists, recovery is not offered again.
inline constexpr char kRecoverFailPath[] = "/tmp/recover_fail";

inline constexpr char kRecoverMountPoint[] = "/recover";

// Whether the mounted system below `root` is one of this machine's model, not older than the flash, and has a recovery
// copy that fits it and differs from the flash. Runs the copy's own updater. Returns 1 or 0; the reason is logged.
[[nodiscard]] int IsSystemRecoverable(const char *root);

// Compares two VERSION files by majorversion, minorversion and buildnumber, as texts: "10" is before "9". A missing key
// is empty, and logged. Returns what strcmp does for the first that differ.
[[nodiscard]] int CompareVersion(const char *a, const char *b);

// Runs the recovery copy's updater on the system that is mounted at /recover. A failure is recorded as of an upgrade,
// recovery is not offered again, and the cached status goes. Returns 0; a negative PatchResult.
[[nodiscard]] int RunRecoverUpdater(const char *updater_path);

// The whole of `norvupgrade --recover`: recovers the flash from the system on the disks. Returns 0; -1.
int recover_flash();

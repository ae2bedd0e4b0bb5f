// Whether a patch's system image has room on a device.
#pragma once

// Tells whether the device holds what the unpacked patch in `folder` needs; its VERSION is at `version_path`. `device`
// is a path, or a name below /dev. Every doubt is a no, and logged.
[[nodiscard]] bool patch_fits_device(const char *folder, const char *version_path, const char *device);

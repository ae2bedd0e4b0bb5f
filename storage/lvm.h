// Logical volumes on a device, as the LVM tools tell.
#pragma once

#include <cstddef>
#include <cstdio>

// The path of the logical volume on a physical volume, "/dev/group/volume". Returns 0; -1 when there is none or the
// listing makes no sense.
[[nodiscard]] int lvm_get_lvpath(const char *device, char *out, size_t size);
// The parser of that: the same from the listing of `pvs -o pv_name,vg_name,lv_name,origin --separator :`.
[[nodiscard]] int lvm_lvpath_parse(FILE *listing, const char *device, char *out, size_t size);

// Unmounts and removes the snapshots of the device's logical volume, then volume, group and physical volume. Returns 0,
// also when there is no volume or a command fails; -1 with 0x0d00, 0x0900 (no list of mounts) or 0x4000.
int lvm_rm_lvpath(const char *device);

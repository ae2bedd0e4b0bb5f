// Device-mapper disks.
#pragma once

#include <cstddef>

// The device below a mapped one, one level down: for a name of /dev/mapper the block device behind it ("dm-0"), for a
// block device with members in /sys/block/<name>/slaves the first of them by name, else the name itself. "/dev/" and
// "/dev/mapper/" in front are allowed, and not given back. Applied twice it leads from a mapper's name to a disk.
// Returns 0; -1 with 0x0d00, 0x0700 when there is no such device, 0x0100.
[[nodiscard]] int mapped_disk_parent_get(const char *name, char *parent, size_t size);

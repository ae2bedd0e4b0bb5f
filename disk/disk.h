// Disks by their kernel name: class, place, partitions. A name may be bare or have "/dev/" in front.
#pragma once

#include <cstdint>

#include "lib/list.h"

// Which port a disk hangs on.
enum DiskPortType : int {
    kDiskPortUnknown = 0,
    kDiskPortInternal = 1,
    kDiskPortEsata = 2,
    kDiskPortExpansion = 3,
    kDiskPortUsb = 4,
    kDiskPortBoot = 5,
    kDiskPortIscsi = 6,
    kDiskPortCache = 7,
    kDiskPortUsbHub = 8,
    kDiskPortSdCard = 9,
    kDiskPortInvalid = 10, // present but not permitted
    kDiskPortSystem = 11,
};

// Bit of a class, by which partitions are filtered.
enum DiskContainer : int32_t {
    kDiskContainerNone = 0,
    kDiskContainerInternal = 0x1,
    kDiskContainerExpansion = 0x2,
    kDiskContainerUsb = 0x4,
    kDiskContainerEsata = 0x8,
    kDiskContainerCache = 0x20,
    kDiskContainerSystem = 0x80,
};

struct DiskLocation {
    int32_t index;     // disk number within its class, from 1
    int32_t container; // DiskContainer
    int32_t unit;      // expansion unit, 0 elsewhere
    int32_t partition; // 0 for a whole disk
    int32_t slot;      // PCI slot of an adapter card, -1 without
    int32_t reserved;  // always 0
};
static_assert(sizeof(DiskLocation) == 24);

// The part of a name behind "/dev/".
[[nodiscard]] const char *disk_bare_name(const char *path);

// Whether a partition of this name is written with a 'p' before its number.
[[nodiscard]] bool disk_name_has_p(const char *path);

// Index of the letters behind "sd": sda 0, sdz 25, sdaa 26; -1 without a letter or beyond what an index can hold.
[[nodiscard]] int disk_letter_index(const char *path);

// Copies `path` without its partition number. Returns 0; -1 with 0x0d00 when `size` is not above the length of `path`.
[[nodiscard]] int disk_partition_num_remove(const char *path, char *disk, int size);

// Reads the number behind a partition's name and copies the name before it. Returns the number; 0 when the name has
// none; -1 with 0x0d00.
[[nodiscard]] int disk_partition_num_get(const char *path, char *disk, int size);

// Class of a disk, DiskPortType; 0 on any trouble, logged.
[[nodiscard]] int external_disk_port_check(const char *path);
// Bit of a class; -1 for a class without one.
[[nodiscard]] int disk_port_to_container(int type);
// Both in one.
[[nodiscard]] int disk_container_get(const char *path);

// Fills `location` from a device name. Returns 0; -1 when the name's class is unknown, or without a position.
[[nodiscard]] int disk_path_parse(const char *path, DiskLocation *location);

// Pushes the names of all disks of one class, sorted. Returns 0; -1, what was found until then stays.
[[nodiscard]] int external_disk_port_enum(int type, PNLIBSZLIST *list);

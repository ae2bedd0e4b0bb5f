// Disks by their kernel name: class, place, partitions. A name may be bare or have "/dev/" in front.
#pragma once

#include <cstddef>
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

// Names ------------------------------------------------------------------------------------------------------------

// The part of a name behind "/dev/".
[[nodiscard]] const char *disk_bare_name(const char *path);

// Path of a disk or partition that is given by its bare name or by a path. Returns the length; -1 with 0xfb00 when it
// does not fit.
[[nodiscard]] int disk_device_path_get(const char *name, char *path, size_t size);

// Whether a partition of this name is written with a 'p' before its number.
[[nodiscard]] bool disk_name_has_p(const char *path);

// Whether the name is an NVMe disk or partition, on a model that has such disks.
[[nodiscard]] bool disk_is_nvme(const char *path);

// Index of the letters behind "sd": sda 0, sdz 25, sdaa 26; -1 without a letter or beyond what an index can hold.
[[nodiscard]] int disk_letter_index(const char *path);

// Copies `path` without its partition number, "/dev/" kept. The number begins at the first digit, or behind the last
// 'p' where names have one. Returns 0; -1 with 0x0d00 when `size` is not above the length of `path`.
[[nodiscard]] int disk_partition_num_remove(const char *path, char *disk, int size);

// Reads the number behind a partition's name and copies the name before it, "/dev/" kept. The number begins at the
// first digit that is not 0, or behind the first 'p' where names have one. Returns the number; 0 when the name has
// none; -1 with 0x0d00.
[[nodiscard]] int disk_partition_num_get(const char *path, char *disk, int size);

// Writes the bare name of partition `number`, from 1, of a disk. Returns 0; -1 with 0x0d00 on a bad argument and for
// the boot flash, 0xfb00 when `size` does not suffice.
[[nodiscard]] int disk_device_partition_name_get(const char *disk, int number, char *name, int size);
// The same with "/dev/" in front.
[[nodiscard]] int disk_device_partition_path_get(const char *disk, int number, char *path, int size);
// Writes the pattern for glob(3) that the bare names of all partitions of a disk match. Results as above.
[[nodiscard]] int disk_device_partition_glob_get(const char *disk, char *pattern, int size);

// Writes the path of the device that holds the system, or the first data volume. Returns 0; -1 with 0x0d00 on a model
// that has none, 0xfb00 when `size` does not suffice.
[[nodiscard]] int disk_sys_device_path_get(char *path, int size);
[[nodiscard]] int disk_first_data_device_path_get(char *path, int size);

// What the kernel says of a disk --------------------------------------------------------------------------------------

// Size of a block device in sectors of 512 bytes. Returns 1; 0 when there is no medium (ENXIO at the open); -1 with
// 0x0d00, 0x0900, 0x8100 or 0xfb00.
[[nodiscard]] int disk_size_get(const char *path, uint64_t *sectors);

// Whether a whole disk does not rotate. Returns 1 or 0; -1 with 0x0d00, 0x0900 or 0x0a00, also for a partition.
[[nodiscard]] int disk_is_ssd(const char *path);

// Class and place ---------------------------------------------------------------------------------------------------

// Whether a disk may be used at all. Every name may.
[[nodiscard]] bool disk_check_valid(const char *path);

// Class of a disk, DiskPortType; 0 on any trouble, logged.
[[nodiscard]] int external_disk_port_check(const char *path);
// Bit of a class; -1 for a class without one.
[[nodiscard]] int disk_port_to_container(int type);
// Both in one.
[[nodiscard]] int disk_container_get(const char *path);

// Fills `location` from a device name. Returns 0; -1 when the name's class is unknown, or without a position.
[[nodiscard]] int disk_path_parse(const char *path, DiskLocation *location);

// Lists -------------------------------------------------------------------------------------------------------------
//
// All push bare names behind what the list holds and sort the whole list by strcmp. Return 0, also when nothing was
// found; -1: what was found until then stays.

// The disks of one class that are there. -1 with 0x0d00 for a class that is not searched for.
[[nodiscard]] int external_disk_port_enum(int type, PNLIBSZLIST *list);
// The disks of one class that the model could hold. -1 with 0xd900 on a model with SAS.
[[nodiscard]] int external_disk_port_enum_all(int type, PNLIBSZLIST *list);

// M.2 disks, NVMe disks of U.2 slots, and internal disks that are neither M.2 nor NVMe.
[[nodiscard]] int external_disk_m2_enum(PNLIBSZLIST *list);
[[nodiscard]] int external_disk_u2_enum(PNLIBSZLIST *list);
[[nodiscard]] int external_disk_internal_bay_enum(PNLIBSZLIST *list);

// The disks on which the system may be installed. These come in install order, by expansion unit and disk number, and
// the list is left unsorted. Returns 0; -1.
[[nodiscard]] int NORVDiskSystemInstallationDeviceEnum(PNLIBSZLIST *list);

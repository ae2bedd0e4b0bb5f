// What the tool does to a disk. After a fault the disk and the kernel's view of it are as before.
#pragma once

#include <cstdio>

#include "platform/sfdisk/disk.h"
#include "platform/sfdisk/table.h"

// Writes an empty label where there is none; a valid label stays as it is.
[[nodiscard]] Fault label_ensure(const Disk &disk);

[[nodiscard]] Fault partition_add(const Disk &disk, const PartitionRequested &requested);

[[nodiscard]] Fault partitions_remove(const Disk &disk, int first, int last);
// Removes all partitions and the label, also a damaged one.
[[nodiscard]] Fault partitions_remove_all(const Disk &disk);

// Prints "<device> <start> <sectors> <type>" for one partition, or for all when `number` is 0. The device is `path`
// with the number behind it.
[[nodiscard]] Fault partitions_list(const Disk &disk, const char *path, int number, FILE *out);

// What the kernel knows of a disk's partitions, changed one by one: reading the table anew is refused as long as any
// partition is in use.
#pragma once

#include "platform/sfdisk/disk.h"
#include "platform/sfdisk/table.h"

[[nodiscard]] Fault kernel_add(const Disk &disk, const Partition &partition);
// A partition that the kernel does not know is no fault. One that was in use a moment ago is waited for.
[[nodiscard]] Fault kernel_remove(const Disk &disk, int number);

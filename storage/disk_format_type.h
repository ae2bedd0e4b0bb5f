// What an installation may do to a disk.
#pragma once

#include "lib/list.h"

// The numbers are exit statuses of the processes that find them out, and of some callers.
enum DiskFormatType : int {
    kDiskFormatLeave = 0,   // another system's disk, or nothing is known for sure
    kDiskFormatWhole = 1,   // all of it may go
    kDiskFormatSystem = 2,  // system partitions are made anew in place, data stays
    kDiskFormatUnknown = 4, // an unknown layout
};

// Decides about one disk.
//   disk        name or path
//   version     layout that the system partitions are to have
//   partitions  paths of all partitions of the machine, as partition_path_enum lists them; NULL: not known
[[nodiscard]] DiskFormatType disk_format_type(const char *disk, int version, const NLIBSZLIST *partitions);

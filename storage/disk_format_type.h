// What an installation may do to a disk, and why.
#pragma once

#include "lib/list.h"

// The numbers are exit statuses of the processes that find them out, and of some callers.
enum DiskFormatType : int {
    kDiskFormatLeave = 0,   // another system's disk, or nothing is known for sure
    kDiskFormatWhole = 1,   // all of it may go
    kDiskFormatSystem = 2,  // system partitions are made anew in place, data stays
    kDiskFormatUnknown = 4, // an unknown layout
};

// Why. The order is the one in which a disk is looked at.
enum DiskFormatReason : int {
    kFormatNotNamed,
    kFormatForced,          // a file asks for all disks
    kFormatNoPartitions,    // neither of the system partitions
    kFormatNoLayout,        // they lie as in no layout
    kFormatNoListing,       // the machine's partitions are not known
    kFormatSameLayout,      // the layout that is wanted, or 7 for 8
    kFormatOtherLayoutUsed, // another layout, and the data partition is in an array
    kFormatOtherLayout,
    kFormatOldestLayout, // of which nothing can be kept
    kFormatNotOurs,      // no partition is in an array that this system may use
};
struct DiskFormatDecision {
    DiskFormatType type;
    DiskFormatReason reason;
    int layout;            // version; 0 unless the disk was looked at so far and has one
    const char *partition; // the one that decided, an item of the list; NULL when it was not one of them
};

// Decides about one disk, which is only read.
//   disk        name or path
//   version     layout that the system partitions are to have
//   partitions  paths of all partitions of the machine, as partition_path_enum lists them; NULL: not known
[[nodiscard]] DiskFormatDecision disk_format_decide(const char *disk, int version, const NLIBSZLIST *partitions);
// The type alone; kDiskFormatLeave is logged.
[[nodiscard]] DiskFormatType disk_format_type(const char *disk, int version, const NLIBSZLIST *partitions);

// Turns what was found for each of an installation's disks, DiskFormatType, into what is done: where a disk has data to
// keep, those of an unknown layout are left alone.
void disk_format_settle(int *types, int count);

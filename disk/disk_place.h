// Places of the disks whose name does not tell. Shared by the operations of disk.h.
#pragma once

#include "disk/disk.h"

// Class, number and partition of a disk on a model with SAS, by its name; its container stays unset. A disk behind an
// enclosure that has not come up is waited for, 12 seconds at most.
//   type  gets DiskPortType as far as it was found, else 0
// Returns 0; -1 with 0x0d00, or what the search left.
[[nodiscard]] int disk_sas_path_parse(const char *path, int *type, DiskLocation *location);

// Number and extension slot of an M.2 disk on SATA, by its name without a partition. Returns 0; -1 with 0x0d00, 0x0700
// or what the reading of the slots left.
[[nodiscard]] int disk_index_and_slot_get(const char *disk, int *index, int *slot);

// Which disks do not suit the interface of their bay, as the board tells.
#pragma once

#include <cstdint>

// Disks of one interface.
struct DiskInterfaceGroup {
    uint8_t is_incompatible[64]; // of disk i + 1, not 0
    char name[32];
};

// The driver's record.
struct DiskInterfaces {
    int32_t count; // groups that are filled
    DiskInterfaceGroup groups[2];
};
static_assert(sizeof(DiskInterfaces) == 196);

// Asks the board. Returns 0, `count` then being 0 to 2; -1 with 0x0d00, 0x0900 or 0x8100.
[[nodiscard]] int disk_intf_check(DiskInterfaces *interfaces);

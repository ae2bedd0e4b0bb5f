// Which letters of disks belong to which ports, as the model description says.
#pragma once

#include <cstdint>

// Bit n of a mask stands for the disk of letter index n.
struct DiskPortMasks {
    uint32_t internal, esata, usb, cache;
};

// Reads the masks on first use; as long as the USB mask is 0 they are read again on every call. Returns 0; -1 when the
// model has no USB mask, logged.
[[nodiscard]] int disk_port_masks_load(DiskPortMasks *masks);

// Where an NVMe disk sits: onboard, by the product table of PCI ports, or on a card in an extension slot.
#pragma once

enum NvmeSlotKind : int {
    kNvmeSlotUnknown = 0,
    kNvmeSlotBlocked = 1, // a slot whose disks are not permitted
    kNvmeSlotU2 = 2,      // a bay
    kNvmeSlotCache = 3,   // an M.2 slot for cache disks
    kNvmeSlotM2Bay = 4,   // an M.2 slot that counts as a bay
};

struct NvmePlace {
    NvmeSlotKind kind;
    int index; // number of the disk within its kind, or on its card, from 1
    int slot;  // extension slot of its card, from 1; 0 for an onboard cache slot; -1 for any other
};

// The place of an NVMe disk by its name, whole or partition, "/dev/" allowed. Returns 0; -1 with 0x0d00, 0x0200, 0x0700
// when there is no such disk or no table knows its place.
[[nodiscard]] int nvme_place_get(const char *disk, NvmePlace *place);

// Its kind alone; kNvmeSlotUnknown on any trouble.
[[nodiscard]] NvmeSlotKind nvme_slot_kind_get(const char *disk);

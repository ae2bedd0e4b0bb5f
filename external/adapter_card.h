// Cards that carry disks or network ports, told apart by the PCI bridge on them.
#pragma once

// Ids beside those of the product table.
inline constexpr int kAdapterCardOnboard = 7; // a known kind of device on no known card
inline constexpr int kAdapterCardUnknown = 8;

// Id of the card that carries a device, by the device's kernel name: nvc, sata and nvme disks, whole or partition, and
// eth interfaces. kAdapterCardUnknown for any other name, with 0x0d00.
[[nodiscard]] int adapter_card_get(const char *device);

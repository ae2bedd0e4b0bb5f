// Where a network port sits on the PCI bus, and which ports stand on extension cards.
#pragma once

#include <cstddef>

inline constexpr char kPciDevicesPrefix[] = "/sys/bus/pci/devices/"; // and the PCI name

// The PCI name of an interface's device, "0000:00:1c.2". Returns 0; -1 with 0x0d00, 0x0700 when it has no device, as
// virtual interfaces, or 0x0100.
[[nodiscard]] int external_hw_find_NIC_PCI_name(const char *ifname, char *pci_name, size_t size);

// Whether a device lies below a port in the device tree.
//   port_path  folder of the port: "/sys/bus/pci/devices/0000:00:1c.0"
// Returns 1; 0, also when the tree cannot be read (logged).
[[nodiscard]] int external_hw_is_device_on_PCI_port(const char *pci_name, const char *port_path);

// Whether a device lies below a port that the board's list of extension ports names. Returns 1; 0, also without a list;
// -1 when the list names none or cannot be read.
[[nodiscard]] int external_hw_is_device_on_PCI_extension_port(const char *pci_name);

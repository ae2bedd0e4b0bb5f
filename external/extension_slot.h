// Extension slots for PCI cards: /etc.defaults/extensionPorts names in its section "pci" the port of each, as
// pci1="0000:00:01.0".
#pragma once

#include <string_view>

inline constexpr char kExtensionPortsPath[] = "/etc.defaults/extensionPorts";

// The slot that a device's folder below /sys/devices lies in: the first component of the path that is a slot's address,
// or its beginning.
//   behind  receives what follows that component, from its slash; NULL when not wanted
// Returns the slot's number; 0 when the device is in none; -1 with 0x0200.
[[nodiscard]] int extension_slot_find(std::string_view path, std::string_view *behind);

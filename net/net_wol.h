// Wake-on-LAN of an interface, through ethtool requests (linux/ethtool.h).
#pragma once

// Whether the interface wakes on a magic packet: 1 or 0; -1 with 0x3900.
[[nodiscard]] int net_wol_get(const char *name);
// Switches that on or off. Returns 0; -1 with 0x3900.
[[nodiscard]] int net_wol_enable(const char *name, int enable);

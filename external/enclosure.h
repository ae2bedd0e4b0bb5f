// Disk LEDs of SAS enclosures.
#pragma once

// Switches the fault and locate lamps of all slots on or off. Returns 0; -1 with 0x0700 when there is no enclosure,
// 0x0b00 when a lamp could not be set.
[[nodiscard]] int enclosure_disk_led_set_host(int is_on);

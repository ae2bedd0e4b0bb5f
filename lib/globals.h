// Process-wide values that main sets before it calls a role.
#pragma once

#include <csignal>

extern int gblSupportRaid;                 // 1 when `supportraid` is exactly "yes"
extern int gblInternalDiskWithoutLedMask;  // 1 when `internal_disk_without_led_mask` is "yes" in any case
extern volatile sig_atomic_t gblNcemdStop; // set by the event daemon's SIGTERM handler

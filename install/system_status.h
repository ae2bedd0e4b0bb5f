// What the disks hold, and how it is told to clients.
#pragma once

#include <cstdint>

enum SystemStatus : int { SYSTEM_NORMAL = 1, SYSTEM_CRASHED = 2, SYSTEM_NOT_INSTALLED = 3 };

// What the system on the disks says about itself; cleared each time it is looked at.
struct DiskSysInfo {
    char model[64], version[64], platform[64], admin_port[8];
    unsigned long build_num;
    int endian, bits, max_align;
};

extern int gSysStatus;           // SystemStatus
extern int gblSystemRecoverable; // 1 when the flash can be recovered from the disks
extern uint32_t ulSysMigratType; // bits that tell how the system on the disks differs from this one
extern DiskSysInfo gDiskSysInfo;

// Looks at the disks and fills the values above.
void DetectSysStatus();

// Stands in for the detection: the disks were not looked at, and what is told is what a machine with no system tells.
#include "install/system_status.h"

int gSysStatus = SYSTEM_NOT_INSTALLED;
int gblSystemRecoverable = 0;
uint32_t ulSysMigratType = 0;
DiskSysInfo gDiskSysInfo = {};

void DetectSysStatus()
{
    gSysStatus = SYSTEM_NOT_INSTALLED;
}

#include "install/system_status.h"

int gSysStatus = SYSTEM_NOT_INSTALLED;
int gblSystemRecoverable = 0;
int gblCreateDataVol = 0;
int gblUpgradeVol = 0;
char gszUpgradeVolDev[32] = "";
char gszUpgradeVolMnt[32] = "";
char gszSysDev[16] = "";
char gszDataDev[16] = "";
uint32_t ulSysMigratType = 0;
DiskSysInfo gDiskSysInfo = {};

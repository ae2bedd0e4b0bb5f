#include "lib/globals.h"

int gblSupportRaid = 0;
int gblInternalDiskWithoutLedMask = 0;
int gblNcemdStop = 0;

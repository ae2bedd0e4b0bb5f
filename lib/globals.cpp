#include "lib/globals.h"

int gblSupportRaid = 0;
int gblInternalDiskWithoutLedMask = 0;
volatile sig_atomic_t gblNcemdStop = 0;

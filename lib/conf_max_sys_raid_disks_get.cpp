#include "lib/conf.h"

#include <cstdlib>

#include "lib/file.h"

int NLIBCConfMaxSysRaidDisksGet()
{
    char value[64];
    if (NLIBCFileGetKeyValue(kDefaultsPath, "max_sys_raid_disks", value, sizeof(value), 0) <= 0)
        return NLIBCConfMaxDisksGet();
    return atoi(value);
}

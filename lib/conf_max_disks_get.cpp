#include "lib/conf.h"

#include <cstdlib>

#include "lib/file.h"
#include "lib/report.h"

int NLIBCConfMaxDisksGet()
{
    static constexpr char kKey[] = "maxdisks";
    static bool known = false;
    static int disks = 0;
    if (known)
        return disks;
    char value[64];
    if (NLIBCFileGetKeyValue(kDefaultsPath, kKey, value, sizeof(value), 0) <= 0) {
        NORV_LOG(LOG_ERR, "Failed to NLIBCFileGetKeyValue(%s,%s)", kDefaultsPath, kKey);
        return 0;
    }
    known = true;
    disks = atoi(value);
    return disks;
}

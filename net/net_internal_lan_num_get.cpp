#include <cstdio>
#include <cstdlib>

#include "autocleanup/unique.h"
#include "lib/file.h"
#include "lib/report.h"
#include "net/net.h"

static constexpr char kCountPath[] = "/proc/sys/kernel/norv_internal_netif_num";

int NetInternalLanNumGet()
{
    const UniqueFile file(fopen(kCountPath, "re"));
    if (!file) {
        NORV_LOG(LOG_ERR, "Failed to open %s. %m", kCountPath);
        return fail(kErrOpen);
    }
    int count = 0;
    if (fscanf(file.get(), "%d", &count) == 1 && count > 0)
        return count;
    char value[16];
    if (NLIBCFileGetKeyValue(kDefaultsPath, "maxlanport", value, sizeof(value), 0) > 0)
        count = static_cast<int>(strtol(value, nullptr, 10));
    return count > 0 ? count : 1;
}

#include <cstdio>
#include <cstring>

#include "autocleanup/unique.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/string.h"
#include "zram/zram.h"

int zram_cores_get()
{
    const UniqueFile file(fopen("/proc/cpuinfo", "re"));
    if (!file) {
        NORV_LOG(LOG_ERR, "%s(%d): Failed to open /proc/cpuinfo", __func__, __LINE__);
        return fail(kErrOpen);
    }
    int processors = 0;
    char line[128];
    while (NLIBCFgets(line, sizeof(line), file.get()) != nullptr) {
        NLIBCStrTrimSpace(line, nullptr);
        const char *value = strchr(line, ':');
        int cores;
        if (strstr(line, "cpu cores") != nullptr && value != nullptr && sscanf(value, ": %d", &cores) == 1 && cores > 0)
            return cores;
        if (strstr(line, "processor") != nullptr)
            processors++;
    }
    return processors > 0 ? processors : fail(kErrBadFormat);
}

int zram_cores_print()
{
    const int cores = zram_cores_get();
    if (cores < 0)
        return -1;
    printf("%d\n", cores);
    return 0;
}

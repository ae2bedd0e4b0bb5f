#include <cinttypes>

#include "disk/disk.h"
#include "lib/file_replace.h"
#include "lib/report.h"
#include "lib/string.h"
#include "storage/raid.h"

static int file_name(const char *path, time_t begun, char *file, size_t size)
{
    char stamp[32];
    tm local;
    if (path == nullptr || localtime_r(&begun, &local) == nullptr)
        return fail(kErrBadParameter);
    strftime(stamp, sizeof(stamp), "%Y%m%d_%H%M%S", &local);
    return NLIBCStrSnprintf(file, size, "/etc/raid/progress_repair/%s_%s", disk_bare_name(path), stamp) < 0 ? -1 : 0;
}

int raid_repair_progress_set(const char *path, time_t begun, uint64_t sectors)
{
    char file[256];
    if (file_name(path, begun, file, sizeof(file)) != 0)
        return -1;
    return file_replace(file, "%" PRIu64 "\n", sectors);
}

int raid_repair_progress_get(const char *path, time_t begun, uint64_t *sectors)
{
    char file[256];
    if (sectors == nullptr)
        return fail(kErrBadParameter);
    if (file_name(path, begun, file, sizeof(file)) != 0)
        return -1;
    const UniqueFile progress(fopen(file, "re"));
    if (!progress)
        return fail(kErrOpen);
    if (fscanf(progress.get(), "%" SCNu64, sectors) != 1)
        return fail(kErrBadFormat);
    return 0;
}

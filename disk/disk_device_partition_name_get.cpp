#include "disk/disk.h"

#include <cstring>

#include "lib/conf.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"

using DiskName = char[32];

// Takes the bare name of a disk whose partitions can be named. Returns false, with 0x0d00, for others.
static bool disk_take(const char *disk, int number, DiskName &name)
{
    if (disk == nullptr || *disk_bare_name(disk) == '\0' || number <= 0) {
        fail(kErrBadParameter);
        return false;
    }
    text_cut(name, disk_bare_name(disk));
    if (strncmp(name, "norvboot", strlen("norvboot")) == 0) {
        NORV_LOG(LOG_ERR, "we don't generate norvboot partition name here");
        fail(kErrBadParameter);
        return false;
    }
    return true;
}

static int partition_put(const char *folder, const char *disk, int number, char *out, int size)
{
    DiskName name;
    if (out == nullptr || size <= 0)
        return fail(kErrBadParameter);
    if (!disk_take(disk, number, name))
        return -1;
    const char *separator = disk_name_has_p(disk) ? "p" : "";
    return NLIBCStrSnprintf(out, static_cast<size_t>(size), "%s%s%s%d", folder, name, separator, number) < 0 ? -1 : 0;
}

int disk_device_partition_name_get(const char *disk, int number, char *name, int size)
{
    return partition_put("", disk, number, name, size);
}

int disk_device_partition_path_get(const char *disk, int number, char *path, int size)
{
    return partition_put("/dev/", disk, number, path, size);
}

int disk_device_partition_glob_get(const char *disk, char *pattern, int size)
{
    if (disk == nullptr || pattern == nullptr || size <= 0) {
        NORV_LOG(LOG_ERR, "Invalid input");
        return fail(kErrBadParameter);
    }
    const char *separator = conf_supportsas() || disk_is_nvme(disk) ? "p" : "";
    const char *name = disk_bare_name(disk);
    return NLIBCStrSnprintf(pattern, static_cast<size_t>(size), "%s%s*", name, separator) < 0 ? -1 : 0;
}

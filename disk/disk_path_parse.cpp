#include "disk/disk.h"

#include <cstdio>
#include <cstring>

#include "lib/report.h"

static constexpr int kLetterBase = 0x60; // 'a' is 1

// Number of a disk in an expansion unit: its one letter, or the index of its letters.
static int expansion_index(const char *letters, const char *disk)
{
    return letters[0] != '\0' && letters[1] == '\0' ? letters[0] - kLetterBase : disk_letter_index(disk) + 1;
}

int disk_path_parse(const char *path, DiskLocation *location)
{
    if (path == nullptr || location == nullptr)
        return fail(kErrBadParameter);
    *location = {};
    location->slot = -1;
    const int type = external_disk_port_check(path);
    location->container = disk_port_to_container(type);
    char disk[64];
    const int partition = disk_partition_num_get(path, disk, sizeof(disk));
    if (type == kDiskPortUnknown || location->container < 0 || partition < 0) {
        NORV_LOG(LOG_ERR, "bad paramters: unknown device, disk path: %s", path);
        return fail(kErrBadParameter);
    }
    location->partition = partition;
    const char *name = disk_bare_name(disk);
    if (type == kDiskPortExpansion) {
        location->index = expansion_index(name + strlen("sd"), disk);
        location->unit = name[strlen("sd")] - kLetterBase;
    } else if (type == kDiskPortSystem) {
        sscanf(name, "sysd%9d", &location->index);
    } else {
        location->index = disk_letter_index(disk) + 1;
    }
    return 0;
}

#include "disk/disk_place.h"

#include <cstdio>
#include <cstring>

#include "external/nvme_slot.h"
#include "lib/conf.h"
#include "lib/report.h"

static constexpr int kLetterBase = 0x60; // 'a' is 1

namespace
{

bool is_sas_name(const char *path)
{
    return conf_supportsas() && strstr(path, "nvc") == nullptr && strstr(path, "sysd") == nullptr &&
           !disk_is_nvme(path);
}

// Number of a disk in an expansion unit: its one letter, or the index of its letters.
int expansion_index(const char *disk)
{
    const char *letters = disk + strlen("sd");
    return letters[0] != '\0' && letters[1] == '\0' ? letters[0] - kLetterBase : disk_letter_index(disk) + 1;
}

// Fills number, unit and slot of a whole disk by its bare name. Returns 0; -1.
int place_fill(const char *disk, int type, DiskLocation *location)
{
    NvmePlace place;
    if (type == kDiskPortExpansion) {
        location->index = expansion_index(disk);
        location->unit = disk[strlen("sd")] - kLetterBase;
    } else if (strstr(disk, "nvc") != nullptr) {
        return disk_index_and_slot_get(disk, &location->index, &location->slot);
    } else if (strstr(disk, "sysd") != nullptr) {
        return sscanf(disk, "sysd%9d", &location->index) == 1 ? 0 : fail(kErrBadParameter);
    } else if (disk_is_nvme(disk)) {
        if (nvme_place_get(disk, &place) != 0)
            return -1;
        location->index = place.index;
        location->slot = place.slot;
    } else {
        location->index = disk_letter_index(disk) + 1;
    }
    return 0;
}

} // namespace

int disk_path_parse(const char *path, DiskLocation *location)
{
    if (path == nullptr || location == nullptr)
        return fail(kErrBadParameter);
    *location = {};
    location->slot = -1;
    const bool is_sas = is_sas_name(path);
    int type = kDiskPortUnknown;
    const int sas_result = is_sas ? disk_sas_path_parse(path, &type, location) : 0;
    if (!is_sas)
        type = external_disk_port_check(path);
    location->container = disk_port_to_container(type);
    char disk[64];
    const int partition = disk_partition_num_get(path, disk, sizeof(disk));
    if (sas_result != 0 || location->container < 0 || partition < 0) {
        NORV_LOG(LOG_ERR, "bad paramters: unknown device, disk path: %s", path);
        return fail(kErrBadParameter);
    }
    location->partition = partition;
    return is_sas ? 0 : place_fill(disk_bare_name(disk), type, location);
}

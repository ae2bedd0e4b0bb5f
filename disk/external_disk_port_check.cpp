#include "disk/disk.h"

#include <cstring>

#include "disk/disk_port_masks.h"
#include "external/expansion_unit.h"
#include "lib/report.h"
#include "lib/string.h"

namespace
{

bool has_bit(uint32_t mask, int index)
{
    return (mask >> (static_cast<unsigned>(index) & 31) & 1) != 0;
}

// Whether the eSATA mask claims the disk, and what stands behind that port.
int esata_check(uint32_t mask, int index, const char *name)
{
    constexpr int kLetters = 26;
    if (mask == 0)
        return kDiskPortUnknown;
    if (index >= kLetters) // two letters: behind the port of the first one
        return has_bit(mask, index / kLetters - 1) ? kDiskPortExpansion : kDiskPortUnknown;
    if (!has_bit(mask, index))
        return kDiskPortUnknown;
    char names[1024];
    const bool is_in_unit =
        expansion_unit_disks_get(names, sizeof(names)) == 0 && expansion_unit_list_holds(names, name);
    return is_in_unit ? kDiskPortExpansion : kDiskPortEsata;
}

int mask_check(const char *name)
{
    static DiskPortMasks masks; // of this classification; the listing of all ports keeps its own
    if (disk_port_masks_load(&masks) != 0)
        return kDiskPortUnknown;
    if (strncmp(name, "isd", 3) == 0)
        return kDiskPortIscsi;
    if (strncmp(name, "sd", 2) != 0) {
        NORV_LOG(LOG_ERR, "expected sdx or /dev/sdx, not %s, not match any port type", name);
        return kDiskPortUnknown;
    }
    const int index = disk_letter_index(name);
    if (index < 0) {
        NORV_LOG(LOG_ERR, "error or not supported disk path %s.", name);
        return kDiskPortUnknown;
    }
    if (const int behind_esata = esata_check(masks.esata, index, name); behind_esata != kDiskPortUnknown)
        return behind_esata;
    if (has_bit(masks.internal, index))
        return kDiskPortInternal;
    if (has_bit(masks.usb, index))
        return kDiskPortUsb;
    if (has_bit(masks.cache, index))
        return kDiskPortCache;
    return kDiskPortUsbHub; // whatever no mask claims
}

} // namespace

int external_disk_port_check(const char *path)
{
    if (path == nullptr) {
        NORV_LOG(LOG_ERR, "device path should not be NULL");
        return kDiskPortUnknown;
    }
    if (strstr(path, "mmcblk") != nullptr)
        return kDiskPortSdCard;
    if (strstr(path, "sysd") != nullptr)
        return kDiskPortSystem;
    char disk[64];
    if (disk_partition_num_remove(path, disk, sizeof(disk)) != 0)
        return kDiskPortUnknown;
    const char *name = disk_bare_name(disk);
    return strncmp(name, "norvboot", strlen("norvboot")) == 0 ? static_cast<int>(kDiskPortBoot) : mask_check(name);
}

int disk_port_to_container(int type)
{
    static constexpr int kContainers[] = {
        -1, // unknown
        kDiskContainerInternal,
        kDiskContainerEsata,
        kDiskContainerExpansion,
        kDiskContainerUsb,
        -1, // boot flash
        -1, // iSCSI
        kDiskContainerCache,
        kDiskContainerUsb,
        kDiskContainerUsb,
        -1, // invalid
        kDiskContainerSystem,
    };
    if (type >= 0 && type <= kDiskPortSystem && kContainers[type] != -1)
        return kContainers[type];
    NORV_LOG(LOG_DEBUG, "Unknown diskType");
    return -1;
}

int disk_container_get(const char *path)
{
    return disk_port_to_container(external_disk_port_check(path));
}

#include "disk/disk_place.h"

#include <cstring>
#include <span>

#include "disk/disk_port_masks.h"
#include "external/adapter_card.h"
#include "external/expansion_unit.h"
#include "external/hardware_model.h"
#include "external/nvme_slot.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "product.h"

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
    // A port with a unit behind it is one too: its name begins those of the unit's disks.
    char names[4096];
    const bool is_in_unit = expansion_unit_disks_get(names, sizeof(names)) == 0 && strstr(names, name) != nullptr;
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

bool begins_with_one_of(const char *model, std::span<const char *const> beginnings)
{
    for (const char *beginning : beginnings)
        if (strncmp(model, beginning, strlen(beginning)) == 0)
            return true;
    return false;
}

// Class of an M.2 disk on SATA: most are for caching, but not every model may use every card.
int m2_check(const char *path)
{
    char model[64];
    if (!hardware_model_get(model, sizeof(model))) {
        NORV_LOG(LOG_ERR, "Failed to get model name");
        return kDiskPortUnknown;
    }
    const int card = adapter_card_get(path);
    if (card == kAdapterCardUnknown)
        return kDiskPortUnknown;
    const bool is_refused = (card == 0 && !begins_with_one_of(model, kProductM2Card0Models)) ||
                            ((card == 1 || card == 2) && begins_with_one_of(model, kProductM2Card12Models));
    return is_refused && !conf_support_m2_all_devices() ? kDiskPortInvalid : kDiskPortCache;
}

int nvme_check(const char *path)
{
    switch (nvme_slot_kind_get(path)) {
    case kNvmeSlotU2:
    case kNvmeSlotM2Bay:
        return kDiskPortInternal;
    case kNvmeSlotBlocked:
        return kDiskPortInvalid;
    case kNvmeSlotCache:
        return kDiskPortCache;
    default:
        return kDiskPortUnknown;
    }
}

int sas_check(const char *path)
{
    int type = kDiskPortUnknown;
    DiskLocation location = {};
    if (disk_sas_path_parse(path, &type, &location) != 0)
        NORV_LOG(LOG_ERR, "Failed to parse SAS disk path %s", path);
    return type;
}

} // namespace

bool disk_check_valid(const char *path)
{
    return path != nullptr;
}

int external_disk_port_check(const char *path)
{
    if (path == nullptr) {
        NORV_LOG(LOG_ERR, "device path should not be NULL");
        return kDiskPortUnknown;
    }
    if (!disk_check_valid(path)) {
        NORV_LOG(LOG_ERR, "The device %s is blocked", path);
        return kDiskPortInvalid;
    }
    if (strstr(path, "mmcblk") != nullptr)
        return kDiskPortSdCard;
    if (strstr(path, "nvc") != nullptr)
        return m2_check(path);
    if (strstr(path, "sysd") != nullptr)
        return kDiskPortSystem;
    if (disk_is_nvme(path))
        return nvme_check(path);
    if (conf_supportsas())
        return sas_check(path);
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

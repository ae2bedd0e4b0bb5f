#include "disk/disk_place.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "external/mapped_disk.h"
#include "external/sas.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/report.h"

namespace
{

constexpr int kEnclosureTries = 6;
constexpr unsigned kEnclosureWaitSeconds = 2;

// Which model ids are appliances, and which are expansion units; one bit each.
constexpr int kModelIdEnd = 31;
constexpr uint32_t kApplianceModels = 0x68fff1b2, kExpansionModels = 0x17000e4c;
static_assert((kApplianceModels & kExpansionModels) == 0);

constexpr int kFirstCachePhy = 68, kLastCachePhy = 71;
constexpr int kPhyBeforeBays = 6, kPhyBeforeCache = kFirstCachePhy - 1;

// The number of USB ports is taken up with the first name; no name depends on it.
void usb_port_num_load()
{
    static bool is_loaded = false;
    char value[64];
    if (!is_loaded)
        static_cast<void>(NLIBCFileGetKeyValue(kDefaultsPath, "usbportnum", value, sizeof(value), 0));
    is_loaded = true;
}

// A disk on a host that the table does not know has no expander, and waits in vain.
int expander_model_wait(const char *expander)
{
    for (int tries = 0; tries < kEnclosureTries; tries++) {
        const int model = sas_expander_model_id_get(expander);
        if (model >= 0)
            return model;
        NORV_LOG(LOG_ERR, "Try to wait for enclosure ready.");
        sleep(kEnclosureWaitSeconds);
    }
    return -1;
}

int model_get(const SasPlace &place)
{
    const int model = place.expander[0] == '\0' ? sas_host_model_id_get(place.host) : 0;
    return model > 0 ? model : expander_model_wait(place.expander);
}

int sas_disk_find(const char *disk, int *type, DiskLocation *location)
{
    char device[64], physical[64];
    SasPlace place;
    if (mapped_disk_parent_get(disk, device, sizeof(device)) != 0 ||
        mapped_disk_parent_get(device, physical, sizeof(physical)) != 0 || sas_place_get(physical, &place) != 0)
        return -1;
    const int physical_phy = sas_phy_id_get(place.phy);
    const int model = physical_phy < 0 ? -1 : model_get(place);
    if (model < 0)
        return -1;
    const int phy = sas_phy_map(model, physical_phy);
    const uint32_t bit = model < kModelIdEnd ? 1U << model : 0;
    if ((kApplianceModels & bit) != 0 && phy >= kFirstCachePhy && phy <= kLastCachePhy) {
        *type = kDiskPortCache;
        location->index = phy - kPhyBeforeCache + sas_model_max_disks_get(model);
    } else if (((kApplianceModels | kExpansionModels) & bit) != 0) {
        *type = (kApplianceModels & bit) != 0 ? kDiskPortInternal : kDiskPortExpansion;
        location->index = phy - kPhyBeforeBays;
    } else {
        return fail(kErrNoDevice);
    }
    return 0;
}

bool begins_with(const char *name, const char *word)
{
    return strncmp(name, word, strlen(word)) == 0;
}

} // namespace

int disk_sas_path_parse(const char *path, int *type, DiskLocation *location)
{
    if (path == nullptr || type == nullptr || location == nullptr)
        return fail(kErrBadParameter);
    *type = kDiskPortUnknown;
    if (!conf_supportsas()) {
        NORV_LOG(LOG_ERR, "This model doesn't support SAS, don't waste your time");
        return fail(kErrBadParameter);
    }
    usb_port_num_load();
    char disk[64];
    const int partition = disk_partition_num_get(disk_bare_name(path), disk, sizeof(disk));
    if (partition < 0)
        return -1;
    location->partition = partition;
    location->slot = -1;
    if (begins_with(disk, "sas"))
        return sas_disk_find(disk, type, location);
    if (begins_with(disk, "iscsi") || begins_with(disk, "norvboot")) {
        *type = disk[0] == 'i' ? kDiskPortIscsi : kDiskPortBoot;
        return 0;
    }
    if (!begins_with(disk, "usb"))
        return fail(kErrBadParameter);
    *type = kDiskPortUsb;
    return sscanf(disk, "usb%9d", &location->index) == 1 ? 0 : fail(kErrBadParameter);
}

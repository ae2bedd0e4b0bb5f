#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "autocleanup/unique.h"
#include "external/enclosure.h"
#include "external/sas.h"
#include "external/sys_attribute.h"
#include "lib/report.h"
#include "product.h"

// A name that stands for one entry of a folder of the kernel's.
static bool is_entry_name(const char *name)
{
    return name != nullptr && *name != '\0' && *name != '.' && strchr(name, '/') == nullptr && strlen(name) <= NAME_MAX;
}

int sas_phy_id_get(const char *phy)
{
    if (!is_entry_name(phy))
        return fail(kErrBadParameter);
    char path[NAME_MAX + 64], text[16];
    snprintf(path, sizeof(path), "/sys/class/sas_phy/%s/phy_identifier", phy);
    if (!sys_attribute_read(path, text, sizeof(text)))
        return fail(kErrOpen);
    char *end = nullptr;
    const long id = strtol(text, &end, 10);
    return *end == '\0' && id >= 0 && id <= UINT8_MAX ? static_cast<int>(id) : fail(kErrBadFormat);
}

int sas_host_model_id_get(const char *host)
{
    if (!is_entry_name(host))
        return fail(kErrBadParameter);
    char path[PATH_MAX], link[NAME_MAX + 64];
    snprintf(link, sizeof(link), "/sys/class/scsi_host/%s/device/..", host); // the adapter's folder holds the host's
    if (realpath(link, path) == nullptr)
        return fail(kErrNoDevice);
    const long vendor = sys_attribute_hex(path, "vendor"), device = sys_attribute_hex(path, "device");
    const long subsystem_vendor = sys_attribute_hex(path, "subsystem_vendor");
    const long subsystem_device = sys_attribute_hex(path, "subsystem_device");
    for (const ProductSasHost &row : kProductSasHosts)
        if (row.vendor == vendor && row.device == device && row.subsystem_vendor == subsystem_vendor &&
            row.subsystem_device == subsystem_device)
            return row.model_id;
    return 0;
}

int sas_expander_model_id_get(const char *expander)
{
    if (!is_entry_name(expander))
        return fail(kErrBadParameter);
    UniqueList ids(NLIBCSzListAlloc(0));
    if (!ids || enclosure_enum(ids.address()) != 0)
        return -1;
    for (int i = 0; i < ids.get()->nItem; i++) {
        Enclosure enclosure;
        if (enclosure_get(NLIBCSzListGet(ids.get(), i), &enclosure) == 0 && strcmp(enclosure.expander, expander) == 0)
            return enclosure.model_id;
    }
    return fail(kErrNoDevice);
}

int sas_phy_map(int model_id, int phy)
{
    for (const ProductPhyRange &range : kProductPhyRanges)
        if (range.model_id == model_id && phy >= range.first && phy < range.first + range.count)
            return phy - range.first + range.becomes;
    return phy;
}

int sas_model_max_disks_get(int model_id)
{
    for (const ProductEnclosure &row : kProductEnclosures)
        if (row.model_id == model_id)
            return row.max_disks;
    for (const ProductSasHost &row : kProductSasHosts)
        if (row.model_id == model_id)
            return row.max_disks;
    return 0;
}

#include "disk/disk_port_masks.h"

#include <cstdlib>

#include "lib/file.h"
#include "lib/report.h"

static constexpr char kUsbKey[] = "usbportcfg";

// Returns false when the key is missing or not readable; the mask is then 0.
static bool mask_read(const char *key, uint32_t *mask)
{
    char value[65];
    *mask = 0;
    if (NLIBCFileGetKeyValue(kDefaultsPath, key, value, sizeof(value), 0) <= 0)
        return false;
    *mask = static_cast<uint32_t>(strtoul(value, nullptr, 16));
    return true;
}

int disk_port_masks_load(DiskPortMasks *masks)
{
    if (masks->usb != 0)
        return 0;
    static_cast<void>(mask_read("internalportcfg", &masks->internal));
    static_cast<void>(mask_read("esataportcfg", &masks->esata));
    static_cast<void>(mask_read("cacheportcfg", &masks->cache));
    if (mask_read(kUsbKey, &masks->usb))
        return 0;
    NORV_LOG(LOG_ERR, "Get %s key from %s Error", kUsbKey, kDefaultsPath);
    return -1;
}

#include "disk/disk.h"
#include "disk/disk_port_masks.h"
#include "lib/conf.h"
#include "lib/report.h"

// The mask of a class; NULL for a class without one.
static const uint32_t *mask_of(const DiskPortMasks &masks, int type)
{
    switch (type) {
    case kDiskPortInternal:
        return &masks.internal;
    case kDiskPortEsata:
    case kDiskPortExpansion:
        return &masks.esata;
    case kDiskPortUsb:
        return &masks.usb;
    case kDiskPortCache:
        return &masks.cache;
    default:
        return nullptr;
    }
}

int external_disk_port_enum_all(int type, PNLIBSZLIST *list)
{
    static DiskPortMasks masks; // of this listing; the classification keeps its own
    if (list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    if (conf_supportsas())
        return fail(kErrNoneFoundD9);
    const uint32_t *mask = mask_of(masks, type);
    if (mask == nullptr)
        return fail(kErrBadParameter);
    static_cast<void>(disk_port_masks_load(&masks)); // a class without a key has no ports
    for (int bit = 0; bit < 32; bit++) {
        const char name[] = {'s', 'd', static_cast<char>('a' + bit), '\0'};
        if ((*mask >> bit & 1) != 0 && NLIBCSzListPush(list, name) < 0)
            return -1;
    }
    NLIBCSzListSort(*list, kListSorted);
    return 0;
}

#include "disk/disk_place.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "autocleanup/glob_matches.h"
#include "external/adapter_card.h"
#include "external/extension_slot.h"
#include "external/hardware_model.h"
#include "external/sys_attribute.h"
#include "lib/report.h"
#include "lib/string.h"
#include "product.h"

static constexpr int kFirstOnboardPort = 5, kLastOnboardPort = 6;

namespace
{

// Number of the ATA port of a disk; -1 when the kernel does not tell.
int ata_port_get(const char *disk)
{
    char pattern[128], number[16];
    GlobMatches ports;
    if (NLIBCStrSnprintf(pattern, sizeof(pattern), "/sys/block/%s/../../../../../ata_port/ata*/port_no", disk) < 0)
        return -1;
    if (glob(pattern, 0, nullptr, &ports.found) != 0 ||
        !sys_attribute_read(ports.found.gl_pathv[0], number, sizeof(number)))
        return fail(kErrNoDevice);
    return atoi(number);
}

int onboard_remap(int port, int *index, int *slot)
{
    char model[64];
    hardware_model_get(model, sizeof(model));
    if (strcmp(model, kProductOnboardM2Model) == 0 && port >= kFirstOnboardPort && port <= kLastOnboardPort) {
        *index = port - kFirstOnboardPort + 1;
        *slot = 0;
        return 0;
    }
    NORV_LOG(LOG_ERR, "%s: %s port no %d out of expection", "DiskInexAndSlotRemap", model, port);
    return fail(kErrNoDevice);
}

int card_slot_get(const char *disk, int *slot)
{
    char link[64], path[PATH_MAX];
    if (NLIBCStrSnprintf(link, sizeof(link), "/sys/block/%s", disk) < 0)
        return -1;
    if (realpath(link, path) == nullptr)
        return fail(kErrNoDevice);
    *slot = extension_slot_find(path, nullptr);
    return *slot > 0 ? 0 : fail(kErrNoDevice);
}

} // namespace

int disk_index_and_slot_get(const char *disk, int *index, int *slot)
{
    if (disk == nullptr || index == nullptr || slot == nullptr)
        return fail(kErrBadParameter);
    const int port = ata_port_get(disk);
    if (port < 0)
        return -1;
    const int card = adapter_card_get(disk);
    if (card == kAdapterCardUnknown) {
        NORV_LOG(LOG_ERR, "Unknown M2 card model: %s", disk);
        return fail(kErrNoDevice);
    }
    if (card == kAdapterCardOnboard)
        return onboard_remap(port, index, slot);
    *index = port;
    return card_slot_get(disk, slot);
}

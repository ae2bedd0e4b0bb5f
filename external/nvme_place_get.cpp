#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "external/extension_slot.h"
#include "external/nvme_slot.h"
#include "external/sys_attribute.h"
#include "lib/file.h"
#include "lib/report.h"
#include "product.h"

static constexpr long kPciBridgeClass = 0x0604; // linux/pci_ids.h, PCI_CLASS_BRIDGE_PCI

namespace
{

bool path_has(std::string_view path, std::string_view component)
{
    const std::string_view found = sys_path_component(path, component);
    return found == component;
}

// The rows of this model, or those for every model without rows of its own.
const ProductNvmePort *onboard_find(std::string_view path)
{
    char unique[64] = "";
    static_cast<void>(NLIBCFileGetKeyValue(kDefaultsPath, "unique", unique, sizeof(unique), 0));
    const char *model = "";
    for (const ProductNvmePort &row : kProductNvmePorts)
        if (strcmp(row.unique, unique) == 0)
            model = unique;
    for (const ProductNvmePort &row : kProductNvmePorts)
        if (strcmp(row.unique, model) == 0 && path_has(path, row.address))
            return &row;
    return nullptr;
}

// Number of a bridge among its neighbours, from 1: the ports of a card's switch are in the order of its sockets.
int bridge_number(const char *folder, const char *bridge)
{
    int number = 1;
    const UniqueDir neighbours(opendir(folder));
    while (const dirent *entry = neighbours ? readdir(neighbours.get()) : nullptr) {
        char path[PATH_MAX];
        if (entry->d_name[0] == '.' || strcmp(entry->d_name, bridge) >= 0 ||
            snprintf(path, sizeof(path), "%s/%s", folder, entry->d_name) >= static_cast<int>(sizeof(path)))
            continue;
        const long device_class = sys_attribute_hex(path, "class");
        number += device_class >= 0 && device_class >> 8 == kPciBridgeClass ? 1 : 0;
    }
    return number;
}

// Number of a disk on its card: 1 where it sits in the slot itself.
//   path    its folder, cut in the process
//   behind  the part of it behind the slot's port
int card_index(char *path, std::string_view behind)
{
    const size_t controller = behind.find("/nvme/");
    if (controller == behind.npos)
        return 1;
    const std::string_view bridges = behind.substr(0, behind.substr(0, controller).rfind('/'));
    const size_t last = bridges.rfind('/');
    if (last == bridges.npos || last == 0)
        return 1;
    char *bridge = path + (bridges.data() + last - path);
    path[bridges.data() + bridges.size() - path] = '\0';
    *bridge = '\0';
    return bridge_number(path, bridge + 1);
}

} // namespace

int nvme_place_get(const char *disk, NvmePlace *place)
{
    if (disk == nullptr || place == nullptr)
        return fail(kErrBadParameter);
    char whole[64], link[96], path[PATH_MAX];
    if (disk_partition_num_remove(disk, whole, sizeof(whole)) != 0)
        return -1;
    const char *name = disk_bare_name(whole);
    if (strncmp(name, "nvme", strlen("nvme")) != 0 || strchr(name, '/') != nullptr)
        return fail(kErrBadParameter);
    snprintf(link, sizeof(link), "/sys/block/%s", name);
    if (realpath(link, path) == nullptr)
        return fail(kErrNoDevice);

    std::string_view behind;
    const int slot = extension_slot_find(path, &behind);
    if (slot < 0)
        return -1;
    if (slot > 0) {
        *place = {.kind = kNvmeSlotCache, .index = card_index(path, behind), .slot = slot};
        return 0;
    }
    const ProductNvmePort *port = onboard_find(path);
    if (port == nullptr)
        return fail(kErrNoDevice);
    const auto kind = static_cast<NvmeSlotKind>(port->kind);
    *place = {.kind = kind, .index = port->index, .slot = kind == kNvmeSlotCache ? 0 : -1};
    return 0;
}

NvmeSlotKind nvme_slot_kind_get(const char *disk)
{
    NvmePlace place;
    return nvme_place_get(disk, &place) == 0 ? place.kind : kNvmeSlotUnknown;
}

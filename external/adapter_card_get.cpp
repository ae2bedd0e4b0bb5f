#include "external/adapter_card.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "external/sys_attribute.h"
#include "lib/little_endian.h"
#include "lib/report.h"
#include "product.h"

namespace
{

// Which devices there are, where the kernel shows one, and how far above it a card's bridge stands.
struct Family {
    const char *word;
    const char *before, *behind; // of its name
    int ProductAdapterCard::*levels;
};
constexpr Family kFamilies[] = {
    {"nvc", "/sys/block/", "", &ProductAdapterCard::disk_levels},
    {"sata", "/sys/block/", "", &ProductAdapterCard::disk_levels},
    {"nvme", "/sys/block/", "", &ProductAdapterCard::nvme_levels},
    {"eth", "/sys/class/net/", "/device", &ProductAdapterCard::eth_levels},
};

const Family *family_find(const char *device)
{
    for (const Family &family : kFamilies)
        if (strstr(device, family.word) != nullptr)
            return &family;
    return nullptr;
}

// Cuts components off the end of a path. Returns false when it has too few.
bool path_climb(char *path, int levels)
{
    for (; levels > 0; levels--) {
        char *slash = strrchr(path, '/');
        if (slash == nullptr || slash == path)
            return false;
        *slash = '\0';
    }
    return true;
}

// Looks at the four bytes of configuration space, which is little-endian, that tell cards without ids of their own.
bool configuration_matches(const char *bridge, const ProductAdapterCard &card)
{
    if (card.config.mask == 0)
        return true;
    char path[PATH_MAX];
    if (snprintf(path, sizeof(path), "%s/config", bridge) >= static_cast<int>(sizeof(path)))
        return false;
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    uint8_t bytes[4];
    if (!file || pread(file.get(), bytes, sizeof(bytes), card.config.offset) != sizeof(bytes))
        return false;
    const auto word = static_cast<uint32_t>(little_endian_load(bytes, sizeof(bytes)));
    return (word & card.config.mask) >> card.config.shift == card.config.value;
}

bool bridge_matches(const char *bridge, const ProductAdapterCard &card)
{
    if (sys_attribute_hex(bridge, "vendor") != card.vendor || sys_attribute_hex(bridge, "device") != card.device)
        return false;
    if (card.subsystem_vendor == 0)
        return configuration_matches(bridge, card);
    return sys_attribute_hex(bridge, "subsystem_vendor") == card.subsystem_vendor &&
           sys_attribute_hex(bridge, "subsystem_device") == card.subsystem_device;
}

} // namespace

int adapter_card_get(const char *device)
{
    const Family *family = device == nullptr ? nullptr : family_find(device);
    if (family == nullptr) {
        fail(kErrBadParameter);
        return kAdapterCardUnknown;
    }
    const char *name = disk_bare_name(device);
    char link[PATH_MAX], path[PATH_MAX];
    const int length = snprintf(link, sizeof(link), "%s%.*s%s", family->before, static_cast<int>(strcspn(name, "p")),
                                name, family->behind);
    if (length >= static_cast<int>(sizeof(link)) || realpath(link, path) == nullptr)
        return kAdapterCardOnboard;
    for (const ProductAdapterCard &card : kProductAdapterCards) {
        char bridge[PATH_MAX];
        memcpy(bridge, path, sizeof(bridge));
        const int levels = card.*family->levels;
        if (levels >= 0 && path_climb(bridge, levels) && bridge_matches(bridge, card))
            return card.card_id;
    }
    return kAdapterCardOnboard;
}

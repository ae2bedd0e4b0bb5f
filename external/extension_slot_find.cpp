#include <cstdio>

#include "autocleanup/unique.h"
#include "external/extension_slot.h"
#include "lib/file.h"
#include "lib/report.h"

static constexpr int kSlotsMax = 16;

int extension_slot_find(std::string_view path, std::string_view *behind)
{
    UniqueHash ports(NLIBCSzHashAlloc(0));
    if (!ports)
        return -1;
    if (const int pairs = NLIBCFileGetSection(kExtensionPortsPath, "pci", ports.address()); pairs <= 0)
        return pairs < 0 && NLIBCErrGet() == kErrOutOfMemory ? -1 : 0;
    while (!path.empty()) {
        path.remove_prefix(path.front() == '/' ? 1 : 0);
        const std::string_view component = path.substr(0, path.find('/'));
        path.remove_prefix(component.size());
        for (int slot = 1; slot <= kSlotsMax && !component.empty(); slot++) {
            char key[16];
            snprintf(key, sizeof(key), "pci%d", slot);
            const char *address = NLIBCSzHashGetValue(ports.get(), key);
            if (address == nullptr || !std::string_view(address).starts_with(component))
                continue;
            if (behind != nullptr)
                *behind = path;
            return slot;
        }
    }
    return 0;
}

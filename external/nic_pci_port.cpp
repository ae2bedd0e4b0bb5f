#include <climits>
#include <cstring>
#include <sys/stat.h>

#include "autocleanup/glob_matches.h"
#include "autocleanup/unique.h"
#include "external/extension_slot.h"
#include "external/nic.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/string.h"

static bool is_folder(const char *path)
{
    struct stat status;
    return lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// The folders of the devices below a bridge stand in the folder of the bridge.
int external_hw_is_device_on_PCI_port(const char *pci_name, const char *port_path)
{
    char pattern[PATH_MAX];
    if (pci_name == nullptr || port_path == nullptr ||
        NLIBCStrSnprintf(pattern, sizeof(pattern), "%s/*:*", port_path) < 0)
        return 0;
    GlobMatches matches;
    const int result = glob(pattern, GLOB_ERR | GLOB_NOSORT, nullptr, &matches.found);
    if (result == GLOB_ABORTED || result == GLOB_NOSPACE) {
        NORV_LOG(LOG_ERR, "Failed to glob %s: error(%d) %m", pattern, result);
        return 0;
    }
    for (size_t i = 0; i < matches.found.gl_pathc; i++) {
        const char *path = matches.found.gl_pathv[i];
        if (is_folder(path) && (strncmp(base_name(path), pci_name, strlen(pci_name)) == 0 ||
                                external_hw_is_device_on_PCI_port(pci_name, path) == 1))
            return 1;
    }
    return 0;
}

int external_hw_is_device_on_PCI_extension_port(const char *pci_name)
{
    if (access(kExtensionPortsPath, F_OK) != 0)
        return 0;
    UniqueHash ports(NLIBCSzHashAlloc(512));
    if (!ports || NLIBCFileGetSection(kExtensionPortsPath, "pci", ports.address()) <= 0)
        return -1;
    for (int slot = 0; slot < ports.get()->nSlot; slot++) {
        const auto &pair = ports.get()->slots[slot];
        char path[PATH_MAX];
        if (pair.key != nullptr && NLIBCStrSnprintf(path, sizeof(path), "%s%s", kPciDevicesPrefix, pair.value) > 0 &&
            external_hw_is_device_on_PCI_port(pci_name, path) == 1)
            return 1;
    }
    return 0;
}

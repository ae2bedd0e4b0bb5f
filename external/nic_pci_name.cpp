#include <climits>
#include <cstdlib>
#include <cstring>

#include "external/nic.h"
#include "lib/report.h"
#include "lib/string.h"

int external_hw_find_NIC_PCI_name(const char *ifname, char *pci_name, size_t size)
{
    char link[PATH_MAX], device[PATH_MAX];
    if (ifname == nullptr || pci_name == nullptr ||
        NLIBCStrSnprintf(link, sizeof(link), "/sys/class/net/%s/device", ifname) < 0)
        return fail(kErrBadParameter);
    if (realpath(link, device) == nullptr)
        return fail(kErrNoDevice);
    const char *name = base_name(device);
    if (strlen(name) >= size)
        return fail(kErrBufferTooSmall);
    memcpy(pci_name, name, strlen(name) + 1);
    return 0;
}

#include <algorithm>
#include <cstring>

#include "external/nic.h"
#include "lib/report.h"
#include "lib/string.h"
#include "net/net_seq.h"

// Devices that are in no list come first.
static bool device_precedes(const NETDEVSEQ &left, const NETDEVSEQ &right)
{
    return left.nExtSeq != right.nExtSeq ? left.nExtSeq < right.nExtSeq : strcmp(left.szPciName, right.szPciName) < 0;
}

int net_seq_place(NETDEVSEQ *devices, int count, int internal, PNLIBSZLIST *numbers)
{
    std::sort(devices, devices + count, device_precedes);
    int found = 0;
    for (int u = 0; u < count; u++) {
        const int is_extension = external_hw_is_device_on_PCI_extension_port(devices[u].szPciName);
        if (is_extension < 0) {
            NORV_LOG(LOG_ERR, "error happens when checking if devices on extension port\n");
            return -1;
        }
        if (is_extension == 0) {
            found++;
            continue;
        }
        char number[16];
        NLIBCStrSnprintf(number, sizeof(number), "%d", u - found + internal);
        if (NLIBCSzListInsert(numbers, u, number) < 0)
            return -1;
    }
    if (found != internal) {
        NORV_LOG(LOG_ERR, "Error internal NIC devices %d does not equal to internal NIC number %d\n", found, internal);
        return -1;
    }
    return 0;
}

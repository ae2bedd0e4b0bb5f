#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "external/nic.h"
#include "lib/report.h"
#include "lib/string.h"
#include "net/net_seq.h"

static PNETDEVSEQ ports = nullptr; // lives as long as the process

int net_seq_ports_read()
{
    if (access(kNetSeqPortsPath, F_OK) != 0)
        return 0;
    const UniqueFile file(fopen(kNetSeqPortsPath, "re"));
    if (!file) {
        NORV_LOG(LOG_ERR, "Fail to open file %s [%m]", kNetSeqPortsPath);
        return fail(kErrOpen);
    }
    char line[sizeof(NetSeqPort::szPciPort)];
    for (PNETDEVSEQ *last = &ports; fgets(line, sizeof(line), file.get()) != nullptr;) {
        if (NLIBCStrTrimSpace(line, nullptr) <= 0)
            continue;
        *last = static_cast<PNETDEVSEQ>(calloc(1, sizeof(NetSeqPort)));
        if (*last == nullptr)
            return fail(kErrOutOfMemory);
        memcpy((*last)->szPciPort, line, sizeof(line));
        last = &(*last)->next;
    }
    return 0;
}

int net_seq_port_of(const char *pci_name)
{
    int position = 0;
    for (PNETDEVSEQ port = ports; port != nullptr; port = port->next, position++) {
        char path[PATH_MAX];
        if (NLIBCStrSnprintf(path, sizeof(path), "%s%s", kPciDevicesPrefix, port->szPciPort) > 0 &&
            external_hw_is_device_on_PCI_port(pci_name, path) == 1)
            return position;
    }
    return -1;
}

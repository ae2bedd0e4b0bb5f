#include <cstring>

#include "applets/applets.h"
#include "autocleanup/unique.h"
#include "external/nic.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"
#include "net/net.h"
#include "net/net_seq.h"
#include "product.h"

static constexpr char kOutOfBandPort[] = "0000:00:1c.2";

namespace
{

// Whether this is the model whose out-of-band controller has a port of the host's.
bool has_out_of_band_port()
{
    char unique[64];
    return conf_support_oob_ctl() && NLIBCFileGetKeyValue(kDefaultsPath, "unique", unique, sizeof(unique), 0) > 0 &&
           strcmp(unique, kProductOutOfBandUnique) == 0;
}

// Collects the devices that get a number. The out-of-band port gets its name at once.
int devices_collect(const NET_STAT *names, int count, const char *oob_interface, NETDEVSEQ *devices)
{
    char oob_port[sizeof(kPciDevicesPrefix) + sizeof(kOutOfBandPort)];
    NLIBCStrSnprintf(oob_port, sizeof(oob_port), "%s%s", kPciDevicesPrefix, kOutOfBandPort);
    const bool has_oob_port = has_out_of_band_port();
    int found = 0;
    for (int i = 0; i < count; i++) {
        NETDEVSEQ device = {};
        text_cut(device.szName, text_view(names[i].szName));
        if (strncmp(device.szName, "wlan", strlen("wlan")) == 0 ||
            external_hw_find_NIC_PCI_name(device.szName, device.szPciName, sizeof(device.szPciName)) != 0)
            continue;
        if (has_oob_port && external_hw_is_device_on_PCI_port(device.szPciName, oob_port) == 1) {
            if (net_rename_eth(device.szName, oob_interface) != 0)
                NORV_LOG(LOG_ERR, "failed to rename %s to %s\n", device.szName, oob_interface);
            continue;
        }
        device.nExtSeq = net_seq_port_of(device.szPciName);
        devices[found++] = device;
    }
    return found;
}

} // namespace

int norvnetseqadj_main(int /*argc*/, char * /*argv*/[])
{
    const int internal = NetInternalLanNumGet() - (conf_support_oob_ctl() ? 1 : 0);
    char max_lan_port[32], oob_interface[16] = "";
    const int length = NLIBCFileGetKeyValue(kDefaultsPath, "maxlanport", max_lan_port, sizeof(max_lan_port), 0);
    if (length < 0) {
        NORV_LOG(LOG_ERR, "Failed to get key %s from %s[0x%04X %s:%d]", "maxlanport", kDefaultsPath, NORV_ERR_ARGS);
        return -1;
    }
    if (length <= kEmptyValue) {
        NORV_LOG(LOG_ERR, "Skip network interface adjust\n");
        return 0;
    }
    UniqueList numbers(NLIBCSzListAlloc(512));
    if (!numbers || net_seq_numbers_read(internal, numbers.address()) != 0)
        return -1;
    if (net_seq_ports_read() != 0) {
        NORV_LOG(LOG_ERR, "failed to get %s\n", kNetSeqPortsPath);
        return -1;
    }
    if (numbers.get()->nItem != internal) {
        NORV_LOG(LOG_ERR, "internal nic number %d doesn't match the number of items %d defined in netif_seq\n",
                 internal, numbers.get()->nItem);
        return -1;
    }
    NET_STAT names[kNetSeqMax];
    const int count = NetStatGetAll(names, kNetSeqMax);
    if (count <= 0) {
        NORV_LOG(LOG_ERR, "Error !! failed to get state of all network interfaces\n");
        return -1;
    }
    if (conf_support_oob_ctl() &&
        NLIBCFileGetKeyValue(kDefaultsPath, "oob_interface", oob_interface, sizeof(oob_interface), 0) <= kEmptyValue)
        return -1;
    NETDEVSEQ devices[kNetSeqMax];
    const int found = devices_collect(names, count, oob_interface, devices);
    if (found == 0)
        return 0;
    if (net_seq_place(devices, found, internal, numbers.address()) != 0)
        return -1;
    net_seq_rename(devices, found, numbers.get(), count + 1);
    return 0;
}

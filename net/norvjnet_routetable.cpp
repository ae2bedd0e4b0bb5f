#include <arpa/inet.h>
#include <netinet/in.h>

#include "lib/file.h"
#include "net/net.h"
#include "net/net_files.h"

namespace
{

struct Subnet {
    char network[INET_ADDRSTRLEN], mask[kNetAddressRoom]; // plain decimals: both go to a shell
};

// Reads the subnet that the interface's file tells. Returns 0; -1.
int subnet_read(const char *path, Subnet *subnet)
{
    char ip[kNetAddressRoom];
    in_addr address = {}, mask = {};
    if (NLIBCFileGetKeyValue(path, "IPADDR", ip, sizeof(ip), 0) <= 0 || inet_aton(ip, &address) == 0) {
        NORV_LOG(LOG_ERR, "Get IP from %s fail", path);
        return fail(kErrBadAddress);
    }
    if (NLIBCFileGetKeyValue(path, "NETMASK", subnet->mask, sizeof(subnet->mask), 0) <= 0 ||
        inet_aton(subnet->mask, &mask) == 0) {
        NORV_LOG(LOG_ERR, "Get netmask from %s fail", path);
        return fail(kErrBadAddress);
    }
    address.s_addr &= mask.s_addr;
    inet_ntop(AF_INET, &mask, subnet->mask, sizeof(subnet->mask));
    inet_ntop(AF_INET, &address, subnet->network, sizeof(subnet->network));
    return 0;
}

} // namespace

int NORVJNetRoutetableHandler(int action, const char *name)
{
    if (name == nullptr || name[0] == '\0')
        return fail(kErrBadParameter);
    char path[kNetPathRoom];
    const bool is_dhcp = net_address_file(name, path) == kNetDhcp;
    if ((action == kRouteAdd && is_dhcp) || (action != kRouteAdd && action != kRouteRemove))
        return 0;
    Subnet subnet = {};
    if (subnet_read(path, &subnet) != 0)
        return -1;
    // A route that was not there, or is there already, is no fault.
    static_cast<void>(
        net_line_run("/sbin/route del -net %s netmask %s dev %s > /dev/null 2>&1", subnet.network, subnet.mask, name));
    if (action == kRouteAdd)
        static_cast<void>(net_line_run("/sbin/route add -net %s netmask %s dev %s > /dev/null 2>&1", subnet.network,
                                       subnet.mask, name));
    return 0;
}

int NORVJNetRoutetableClean()
{
    NET_IF_INFO interfaces[kNetInterfacesMax];
    const NetFilesLock lock(kNetReadLockWord);
    if (!lock.held())
        return -1;
    const int count = NLIBNetGetInterfaceInfo(interfaces, kNetInterfacesMax, kNetVirtual);
    for (int i = 0; count >= 2 && i < count; i++) {
        if (interfaces[i].nLink == kNetLinkUp || NORVJNetRoutetableHandler(kRouteRemove, interfaces[i].szName) == 0)
            continue;
        NORV_LOG(LOG_ERR, "NORVJNetRoutetableHandler clear [%s] route table fail", interfaces[i].szName);
        return -1;
    }
    return count < 0 ? -1 : 0;
}

#include "net/norvjnet.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <unistd.h>

#include "lib/file.h"
#include "lib/lock.h"
#include "lib/report.h"
#include "lib/string.h"
#include "net/net.h"

static constexpr int kLeaseWaitSeconds = 3;

namespace
{

struct Subnet {
    char network[INET_ADDRSTRLEN], mask[20];
};

// Reads the subnet that the interface's file tells. Returns 0; -1.
int subnet_read(const char *path, const char *name, Subnet *subnet)
{
    char ip[20];
    in_addr address = {}, mask = {};
    if (NLIBCFileGetKeyValue(path, "IPADDR", ip, sizeof(ip), 0) <= 0 || inet_aton(ip, &address) == 0) {
        NORV_LOG(LOG_ERR, "Get IP from %s fail", name);
        return fail(kErrBadAddress);
    }
    if (NLIBCFileGetKeyValue(path, "NETMASK", subnet->mask, sizeof(subnet->mask), 0) <= 0 ||
        inet_aton(subnet->mask, &mask) == 0) {
        NORV_LOG(LOG_ERR, "Get netmask from %s fail", name);
        return fail(kErrBadAddress);
    }
    address.s_addr &= mask.s_addr;
    inet_ntop(AF_INET, &address, subnet->network, sizeof(subnet->network));
    return 0;
}

void route_run(const char *action, const Subnet &subnet, const char *name)
{
    char line[256];
    if (NLIBCStrSnprintf(line, sizeof(line), "/sbin/route %s -net %s netmask %s dev %s > /dev/null 2>&1", action,
                         subnet.network, subnet.mask, name) > 0 &&
        system(line) != 0)
        return; // a route that was not there, or is there already
}

} // namespace

void net_lease_wait(const char *name, char *path, size_t size)
{
    NLIBCStrSnprintf(path, size, "%s%s.info", kNetLeasePrefix, name);
    for (int second = 0; second < kLeaseWaitSeconds && access(path, F_OK) != 0; second++)
        sleep(1);
}

int NORVJNetRoutetableHandler(int action, const char *name)
{
    if (name == nullptr || name[0] == '\0')
        return fail(kErrBadParameter);
    char path[128];
    const bool is_dhcp = NORVJNetDeviceIsDHCP(name) == 1;
    if (is_dhcp)
        net_lease_wait(name, path, sizeof(path));
    else
        NLIBCStrSnprintf(path, sizeof(path), "%s%s", kNetConfigPrefix, name);
    if ((action == kRouteAdd && is_dhcp) || (action != kRouteAdd && action != kRouteRemove))
        return 0;
    Subnet subnet = {};
    if (subnet_read(path, name, &subnet) != 0)
        return -1;
    route_run("del", subnet, name);
    if (action == kRouteAdd)
        route_run("add", subnet, name);
    return 0;
}

int NORVJNetRoutetableClean()
{
    NET_IF_INFO interfaces[kNetInterfacesMax];
    NLIBCFileLock(kNetReadLockWord, 30);
    const int count = NLIBNetGetInterfaceInfo(interfaces, kNetInterfacesMax, kNetVirtual);
    int result = count < 0 ? -1 : 0;
    for (int i = 0; count >= 2 && i < count; i++) {
        if (interfaces[i].nLink == kNetLinkUp || NORVJNetRoutetableHandler(kRouteRemove, interfaces[i].szName) == 0)
            continue;
        NORV_LOG(LOG_ERR, "NORVJNetRoutetableHandler clear [%s] route table fail", interfaces[i].szName);
        result = -1;
        break;
    }
    NLIBCFileUnlock(kNetUnlockWord);
    return result;
}

#include "net/net.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "lib/text.h"

static constexpr int kInterfacesRead = 256;
static constexpr int kModeIgnoredBits = 4 | 16;

namespace
{

// The flags that rule an interface out.
short flags_ruled_out(int mode)
{
    switch (mode & ~kModeIgnoredBits) {
    case kNetPhysical:
        return IFF_LOOPBACK | IFF_POINTOPOINT | IFF_MASTER;
    case kNetVirtual:
        return IFF_LOOPBACK | IFF_POINTOPOINT | IFF_SLAVE;
    case kNetPointToPoint:
        return IFF_LOOPBACK | IFF_SLAVE;
    default:
        return IFF_LOOPBACK | IFF_POINTOPOINT;
    }
}

bool request(int socket_fd, unsigned long what, const char *name, ifreq *answer)
{
    *answer = {};
    memcpy(answer->ifr_name, name, strnlen(name, IFNAMSIZ - 1));
    return ioctl(socket_fd, what, answer) == 0;
}

// Asks for an address and writes it as text; without one the text stays empty.
template <size_t kRoom> void address_get(int socket_fd, unsigned long what, const char *name, char (&text)[kRoom])
{
    ifreq answer;
    sockaddr_in address;
    if (!request(socket_fd, what, name, &answer))
        return;
    memcpy(&address, &answer.ifr_addr, sizeof(address));
    inet_ntop(AF_INET, &address.sin_addr, text, kRoom);
}

bool is_bridge_port(const char *name)
{
    char path[64];
    snprintf(path, sizeof(path), "/sys/class/net/%s/brport", name);
    return access(path, R_OK) == 0;
}

} // namespace

int NLIBNetGetInterfaceInfo(NET_IF_INFO *table, int max, int mode)
{
    if (max < 0 || (mode & ~kModeIgnoredBits) == 0)
        return fail(kErrBadParameter);
    NET_STAT all[kInterfacesRead];
    const int known = NetStatGetAll(all, kInterfacesRead);
    const UniqueFd socket_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (known <= 0 || !socket_fd)
        return fail(kErrNetwork);
    const short ruled_out = flags_ruled_out(mode);
    int count = 0;
    for (int i = 0; i < known && count < max; i++) {
        const char *name = all[i].szName;
        ifreq answer;
        if (strstr(name, "gbr") != nullptr || strstr(name, "gwlan") != nullptr ||
            !request(socket_fd.get(), SIOCGIFFLAGS, name, &answer))
            continue;
        const short flags = answer.ifr_flags;
        if ((flags & IFF_UP) == 0 || (flags & ruled_out) != 0 || is_bridge_port(name))
            continue;
        if (table != nullptr) {
            NET_IF_INFO *info = &table[count];
            *info = {};
            text_cut(info->szName, name);
            info->nFlags = flags;
            info->nLink = (flags & IFF_RUNNING) != 0 ? kNetLinkUp : 0;
            if (request(socket_fd.get(), SIOCGIFHWADDR, name, &answer))
                memcpy(info->mac, answer.ifr_hwaddr.sa_data, sizeof(info->mac));
            address_get(socket_fd.get(), SIOCGIFADDR, name, info->szIP);
            address_get(socket_fd.get(), SIOCGIFNETMASK, name, info->szMask);
        }
        count++;
    }
    return count;
}

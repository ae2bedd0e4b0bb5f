#include "net/net_wol.h"

#include <cstring>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "autocleanup/unique.h"
#include "lib/report.h"

static int wol_request(const char *name, ethtool_wolinfo *info)
{
    ifreq request = {};
    if (name == nullptr || strlen(name) >= sizeof(request.ifr_name))
        return fail(kErrBadParameter);
    memcpy(request.ifr_name, name, strlen(name) + 1);
    request.ifr_data = reinterpret_cast<char *>(info);
    const UniqueFd socket_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return socket_fd && ioctl(socket_fd.get(), SIOCETHTOOL, &request) == 0 ? 0 : fail(kErrNetwork);
}

int net_wol_get(const char *name)
{
    ethtool_wolinfo info = {};
    info.cmd = ETHTOOL_GWOL;
    if (wol_request(name, &info) != 0)
        return -1;
    return (info.wolopts & WAKE_MAGIC) != 0 ? 1 : 0;
}

int net_wol_enable(const char *name, int enable)
{
    ethtool_wolinfo info = {};
    info.cmd = ETHTOOL_SWOL;
    info.wolopts = enable != 0 ? WAKE_MAGIC : 0;
    return wol_request(name, &info);
}

#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "lib/string.h"
#include "net/net.h"

static constexpr size_t kNameMax = 16; // one more than the kernel takes: it refuses, or the name is cut

// Copies a name as the kernel takes it.
static void name_copy(char (&field)[IFNAMSIZ], const char *name)
{
    memcpy(field, name, strnlen(name, IFNAMSIZ - 1));
}

int NetIsIfUp(const char *name)
{
    char path[64];
    if (name == nullptr || NLIBCStrSnprintf(path, sizeof(path), "/sys/class/net/%s/flags", name) < 0)
        return 0;
    const UniqueFile file(fopen(path, "re"));
    unsigned flags = 0;
    return file && fscanf(file.get(), "0x%x", &flags) == 1 && (flags & IFF_UP) != 0 ? 1 : 0;
}

int net_rename_eth(const char *old_name, const char *new_name)
{
    if (old_name == nullptr || new_name == nullptr)
        return fail(kErrBadParameter);
    if (strlen(old_name) > kNameMax || strlen(new_name) > kNameMax) {
        NORV_LOG(LOG_ERR, "interface name is too long");
        return fail(kErrBadParameter);
    }
    ifreq request = {}, present = {};
    name_copy(request.ifr_name, old_name);
    name_copy(request.ifr_newname, new_name);
    if (if_nametoindex(request.ifr_newname) != 0) {
        NORV_LOG(LOG_ERR, "%s is already exist, can't rename to it", new_name);
        return fail(kErrNetwork);
    }
    if (NetIsIfUp(request.ifr_name) == 1) {
        NORV_LOG(LOG_ERR, "%s is up, please down it before rename", old_name);
        return fail(kErrNetwork);
    }
    const UniqueFd socket_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    name_copy(present.ifr_name, old_name);
    if (!socket_fd || ioctl(socket_fd.get(), SIOCGIFHWADDR, &present) != 0) {
        NORV_LOG(LOG_ERR, "can't get info of %s\n", old_name);
        return fail(kErrNetwork);
    }
    if (ioctl(socket_fd.get(), SIOCSIFNAME, &request) != 0) {
        NORV_LOG(LOG_ERR, "can't change %s to %s\n", old_name, new_name);
        return fail(kErrNetwork);
    }
    return 0;
}

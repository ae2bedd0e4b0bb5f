#include <arpa/inet.h>
#include <cstdio>
#include <ctime>
#include <netinet/in.h>
#include <unistd.h>

#include "lib/file_replace.h"
#include "lib/string.h"
#include "net/net_files.h"
#include "net/net_process_scan.h"

static int address_set(const char *name, const char *ip, const char *mask)
{
    in_addr address = {}, bits = {};
    if (inet_aton(ip, &address) == 0 || inet_aton(mask, &bits) == 0)
        return fail(kErrBadAddress);
    address.s_addr |= ~bits.s_addr;
    char broadcast[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, broadcast, sizeof(broadcast));
    if (net_line_run("/sbin/ifconfig %s %s netmask %s broadcast %s > /dev/null 2>&1", name, ip, mask, broadcast) != 0)
        return fail(kErrChild);
    return 0;
}

// The name in /etc/hosts goes with the new address.
static int hosts_refresh()
{
    char name[kHostNameRoom] = "";
    if (gethostname(name, sizeof(name)) != 0)
        return fail(kErrSystemCall);
    return NORVJNetSetHostname(name);
}

int NORVJLnxSetIPNetmask(const char *name, const char *ip, const char *mask)
{
    char path[kNetPathRoom], backup[kNetPathRoom + 32];
    if (name == nullptr || name[0] == '\0' || ip == nullptr || ip[0] == '\0' || mask == nullptr || mask[0] == '\0' ||
        NLIBCStrSnprintf(path, sizeof(path), "%s%s", kNetConfigPrefix, name) < 0 ||
        NLIBCStrSnprintf(backup, sizeof(backup), "%s.tmp%ld", path, static_cast<long>(time(nullptr))) < 0)
        return fail(kErrBadParameter);
    const bool has_backup = rename(path, backup) == 0;
    if (!has_backup)
        NORV_LOG(LOG_ERR, "failed to rename %s to %s. %m", path, backup);
    bool is_done =
        file_replace_synced(nullptr, path, "IPADDR=%s\nNETMASK=%s\nBOOTPROTO=static\nONBOOT=yes\n", ip, mask) == 0;
    if (is_done) {
        net_dhcp_clients_kill(name);
        is_done = address_set(name, ip, mask) == 0 && hosts_refresh() == 0;
    }
    if (has_backup && (is_done ? unlink(backup) : rename(backup, path)) != 0)
        NORV_LOG(LOG_ERR, "failed to take back %s. %m", backup);
    return is_done ? 0 : -1;
}

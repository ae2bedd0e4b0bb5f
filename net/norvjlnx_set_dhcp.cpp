#include <unistd.h>

#include "lib/file_replace.h"
#include "lib/string.h"
#include "net/net_files.h"

static constexpr unsigned kLeaseSeconds = 30;

int NORVJLnxSetDHCP(const char *name)
{
    char path[kNetPathRoom];
    if (name == nullptr || name[0] == '\0' || NLIBCStrSnprintf(path, sizeof(path), "%s%s", kNetConfigPrefix, name) < 0)
        return fail(kErrBadParameter);
    if (net_line_run("/usr/bin/killall udhcpc > /dev/null 2>&1;/sbin/ifconfig %s 0.0.0.0 > /dev/null 2>&1", name) != 0)
        NORV_LOG_OLD(LOG_ERR, "NORVJLnxSetDHCP", " kill udhcpc error %m");
    if (net_line_run("/sbin/udhcpc -i %s -p /etc/dhcpc/dhcpcd-%s.pid -b > /dev/null 2>&1", name, name) != 0) {
        NORV_LOG_OLD(LOG_ERR, "NORVJLnxSetDHCP", " run udhcpc error %m");
        return fail(kErrChild);
    }
    if (file_replace_synced(nullptr, path, "BOOTPROTO=dhcp\nONBOOT=yes\n") != 0) {
        NORV_LOG_OLD(LOG_ERR, "NORVJLnxSetDHCP", " Set %s error.", path);
        return -2;
    }
    sleep(kLeaseSeconds); // until the lease is there
    return 0;
}

#include <strings.h>

#include "findhost/findhost.h"

int IsMacMatch(const char *mac, const NET_IF_INFO *table, int count)
{
    if (mac == nullptr) {
        FHOST_DEBUG("%s: bad parameter\n", __func__);
        return -1;
    }
    for (int i = 0; i < count; i++) {
        char text[kFhostMacTextRoom];
        fhost_mac_format(table[i].mac, text);
        if (strncasecmp(mac, text, sizeof(FHOST_RECORD::szMac)) == 0)
            return i;
    }
    return -1;
}

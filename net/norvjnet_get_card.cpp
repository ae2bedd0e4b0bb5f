#include <cstring>

#include "lib/file.h"
#include "lib/text.h"
#include "net/net.h"
#include "net/net_files.h"

// Finds the interface by its index or, with `ip`, by the address it holds. NULL when there is none.
static const NET_IF_INFO *interface_find(const NET_IF_INFO *table, int count, int index, const char *ip)
{
    if (ip == nullptr)
        return index < count ? &table[index] : nullptr;
    for (int i = 0; i < count; i++)
        if (table[i].szIP[0] != '\0' && strcmp(table[i].szIP, ip) == 0)
            return &table[i];
    return nullptr;
}

int NORVJNetGetCard1(int index, const char *ip, NORV_CARD *card)
{
    if (card == nullptr || (ip == nullptr && (index < 0 || index >= kNetInterfacesMax)))
        return fail(kErrBadParameter);
    *card = {};
    const NetFilesLock lock(kNetReadLockWord);
    if (!lock.held())
        return -1;
    NET_IF_INFO table[kNetInterfacesMax];
    const int count = NLIBNetGetInterfaceInfo(table, kNetInterfacesMax, kNetVirtual);
    if (count < 0)
        return -1;
    const NET_IF_INFO *info = interface_find(table, count, index, ip);
    if (info == nullptr)
        return 0;
    text_cut(card->szName, text_view(info->szName));
    memcpy(card->mac, info->mac, sizeof(card->mac));
    card->nLinkUp = info->nLink == kNetLinkUp ? 1 : 0;
    char path[kNetPathRoom];
    card->nMode = net_address_file(info->szName, path);
    if (NLIBCFileGetKeyValue(path, "IPADDR", card->szIP, sizeof(card->szIP), 0) <= 0) {
        NORV_LOG_OLD(LOG_ERR, "NORVJNetGetCard1", " Get IP from %s fail", path);
        return -1;
    }
    if (NLIBCFileGetKeyValue(path, "NETMASK", card->szMask, sizeof(card->szMask), 0) <= 0) {
        NORV_LOG_OLD(LOG_ERR, "NORVJNetGetCard1", " Get netmask from %s fail", path);
        return -1;
    }
    return 1;
}

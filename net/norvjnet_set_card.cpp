#include <unistd.h>

#include "lib/text.h"
#include "net/net_files.h"

static int static_set(const NORV_CARD &card, const char *name)
{
    char ip[kNetAddressRoom], mask[kNetAddressRoom];
    if (!text_set(ip, text_view(card.szIP)) || !text_set(mask, text_view(card.szMask)) ||
        net_is_valid_ip_mask(ip, mask) == 0)
        return fail(kErrBadAddress);
    if (NORVJLnxSetIPNetmask(name, ip, mask) != 0)
        return -1;
    unlink("/etc/ppp/old_gateway.bak");
    unlink("/etc/resolv.conf.bak");
    return 0;
}

int NORVJNetSetCard1(const NORV_CARD *card)
{
    if (card == nullptr || (card->nMode != kNetDhcp && card->nMode != kNetStatic))
        return fail(kErrBadParameter);
    const NetFilesLock lock(kNetWriteLockWord);
    if (!lock.held())
        return -1;
    char name[sizeof(card->szName) + 1];
    text_cut(name, text_view(card->szName));
    return card->nMode == kNetDhcp ? NORVJLnxSetDHCP(name) : static_set(*card, name);
}

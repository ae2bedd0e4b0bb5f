#include "findhost/findhost.h"
#include "findhost/keys.h"
#include "findhost/serve.h"
#include "lib/text.h"

static constexpr int kRepeatSeconds = 1;

int fhost_serve_query(const FHOST_RECORD &record, const sockaddr_in &peer)
{
    if (peer.sin_addr.s_addr == ulLastQueryIP && fhost_is_recent(tvLastQuery, kRepeatSeconds)) {
        tvLastQuery = time(nullptr); // who does not pause is never answered
        return -1;
    }
    if (text_view(record.szPubKey).size() == kFhostKeyTextLength && record.ulKeyId != 0)
        FHOSTKeyCacheSet(record.szPcMac, record.ulKeyId, record.szPubKey);
    else if (gblAcceptPlain == 0)
        return -1;
    NET_IF_INFO table[kNetInterfacesMax] = {};
    const int count = NLIBNetGetInterfaceInfo(table, kNetInterfacesMax, kNetVirtual);
    FHOSTReply(IsMacMatch(record.szMac, table, count), &peer, kFhostDone, true, &record);
    ulLastQueryIP = peer.sin_addr.s_addr;
    tvLastQuery = time(nullptr);
    return 0;
}

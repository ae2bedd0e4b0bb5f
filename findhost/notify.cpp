#include <unistd.h>

#include "findhost/findhost.h"

static constexpr unsigned kIntervalSeconds = 10;

void fhost_notify()
{
    for (fhost_signals_catch();; fhost_signals_serve()) {
        NET_IF_INFO table[kNetInterfacesMax] = {};
        const int count = NLIBNetGetInterfaceInfo(table, kNetInterfacesMax, kNetVirtual);
        for (int i = 0; i < count; i++)
            if (table[i].nLink == kNetLinkUp)
                FHOSTSendReadyViaVface(table[i]);
        if (gblAcceptPlain != 0)
            FHOSTReply(-1, nullptr, kFhostDone, false, nullptr);
        sleep(kIntervalSeconds);
    }
}

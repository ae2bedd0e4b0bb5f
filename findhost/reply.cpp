#include <arpa/inet.h>
#include <cstdlib>

#include "findhost/findhost.h"
#include "lib/string.h"

namespace
{

uint32_t is_reachable(const sockaddr_in &peer)
{
    char address[INET_ADDRSTRLEN] = "", line[64];
    inet_ntop(AF_INET, &peer.sin_addr, address, sizeof(address));
    if (NLIBCStrSnprintf(line, sizeof(line), "/bin/ping -c 2 -w 2 %s", address) < 0)
        return 0;
    return system(line) == 0 ? 1 : 0;
}

} // namespace

void FHOSTReply(int index, const sockaddr_in *peer, uint32_t code, bool longForm, const FHOST_RECORD *request)
{
    FhostReply reply = {};
    if (peer != nullptr && !fhost_is_ending()) {
        reply.peer_ip = peer->sin_addr.s_addr;
        reply.connect = is_reachable(*peer);
    }
    if (fhost_is_ending())
        return;
    NET_IF_INFO table[kNetInterfacesMax] = {};
    const int count = NLIBNetGetInterfaceInfo(table, kNetInterfacesMax, kNetVirtual);
    reply.table = table;
    reply.index = index;
    reply.code = code;
    reply.long_form = longForm;
    reply.request = request;
    if (count <= 0) {
        FHOST_DEBUG("no virtual interfaces yet\n");
        FHOSTSendViaPhyface(reply);
    } else if (static_cast<unsigned>(index) <= kNetInterfacesMax) { // whether that link is up or not
        FHOSTSendViaVface(reply);
    } else {
        for (reply.index = 0; reply.index < count; reply.index++)
            if (table[reply.index].nLink == kNetLinkUp)
                FHOSTSendViaVface(reply);
    }
}

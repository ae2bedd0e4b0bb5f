#include "findhost/findhost.h"
#include "findhost/reply_facts.h"
#include "lib/report.h"

int FHOSTSendViaVface(const FhostReply &reply)
{
    if (reply.index < 0 || reply.index >= kNetInterfacesMax)
        return fail(kErrBadParameter);
    FhostPacket packet;
    fhost_vface_reply_build(reply, &packet);
    if (reply.request != nullptr && fhost_reply_seal(*reply.request, &packet) < 0)
        return -1;
    const NET_IF_INFO &interface = reply.table[reply.index];
    return FHOSTSendFrame(interface, fhost_address_parse(interface.szIP), packet);
}

int FHOSTSendViaPhyface(const FhostReply &reply)
{
    NET_IF_INFO table[kNetInterfacesMax] = {};
    FhostReply one = reply;
    one.table = table;
    const int count = NLIBNetGetInterfaceInfo(table, kNetInterfacesMax, kNetPhysical);
    int result = count > 0 ? 0 : -1;
    for (one.index = 0; one.index < count; one.index++) {
        if (table[one.index].nLink != kNetLinkUp)
            continue;
        FhostPacket packet;
        fhost_phyface_reply_build(one, &packet);
        if (fhost_physical_frame_send(table[one.index], packet) != 0)
            result = -1;
    }
    return result;
}

int FHOSTSendReadyViaVface(const NET_IF_INFO &interface)
{
    FhostPacket packet;
    fhost_ready_build(interface, &packet);
    return FHOSTSendFrame(interface, fhost_address_parse(interface.szIP), packet);
}

#include "net/udpd.h"

#include "lib/report.h"

int udpd_send_udp_broad_cast(int kind, const NET_UDP_FRAME *frame, const void *payload, int length, const char *ifname)
{
    if (kind != kUdpBroadCastKind || frame == nullptr || payload == nullptr || length < 1 || ifname == nullptr)
        return fail(kErrBadParameter);
    const LinkSender sender = link_sender_open(ifname);
    return sender ? link_sender_udp(sender, *frame, payload, length) : -1;
}

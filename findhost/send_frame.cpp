#include <cstring>
#include <netinet/in.h>
#include <unistd.h>

#include "findhost/findhost.h"
#include "net/link_sender.h"

static constexpr uint16_t kSourcePort = 1234;
static constexpr useconds_t kRepeatGapUs = 10;

// What stands for the address of an interface that has none, in network order: 1.1.1.1.
static constexpr uint32_t kNoAddress = 0x01010101;

static NET_UDP_FRAME frame_to_all(uint32_t ip)
{
    NET_UDP_FRAME frame = {};
    frame.ulSrcIP = ip != 0 ? ip : kNoAddress;
    frame.ulDstIP = INADDR_BROADCAST;
    frame.usSrcPort = kSourcePort;
    frame.usDstPort = static_cast<uint16_t>(gblReplyPort);
    return frame;
}

int FHOSTSendFrame(const NET_IF_INFO &interface, uint32_t ip, const FhostPacket &packet)
{
    const NET_UDP_FRAME frame = frame_to_all(ip);
    const LinkSender sender = link_sender_open(interface.szName);
    int result = 0;
    for (int repeat = 0; repeat < 2; repeat++) {
        if (repeat != 0)
            usleep(kRepeatGapUs);
        if (!sender || link_sender_udp(sender, frame, packet.bytes, static_cast<int>(packet.size)) != 0) {
            FHOST_DEBUG("(%d)NORVNetSendUDPBroadCast failed(interface=%s)\n", __LINE__, interface.szName);
            result = -1;
        }
    }
    return result;
}

int fhost_physical_frame_send(const NET_IF_INFO &interface, const FhostPacket &packet)
{
    NET_UDP_FRAME frame = frame_to_all(kNoAddress);
    memcpy(frame.srcMac, interface.mac, sizeof(frame.srcMac));
    const LinkSender sender = link_sender_open(interface.szName);
    if (sender && link_sender_udp(sender, frame, packet.bytes, static_cast<int>(packet.size)) == 0)
        return 0;
    FHOST_DEBUG("(%d)NORVNetSendUDPBroadCast failed\n", __LINE__);
    return -1;
}

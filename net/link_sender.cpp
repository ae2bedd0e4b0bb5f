#include "net/link_sender.h"

#include <cstdio>
#include <cstring>
#include <libnet.h>

#include "lib/report.h"

namespace
{

constexpr uint8_t kZeroMac[6] = {};
constexpr uint8_t kBroadcastMac[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
constexpr uint8_t kFallbackMac[6] = {0x0d, 0x0e, 0x0a, 0x0d, 0x00, 0x00};
constexpr uint16_t kIpv4Id = 242;
constexpr uint8_t kTimeToLive = 64;

bool is_zero(const uint8_t (&mac)[6])
{
    return memcmp(mac, kZeroMac, sizeof(mac)) == 0;
}

// Puts the headers in front of the payload, the innermost first. Returns 0; -1, told.
int frame_build(libnet_t *net, const NET_UDP_FRAME &frame, const uint8_t *src_mac, const void *payload, uint32_t length)
{
    // What a frame before this one left; its blocks would be sent again.
    libnet_clear_packet(net);
    if (libnet_build_udp(frame.usSrcPort, frame.usDstPort, static_cast<uint16_t>(LIBNET_UDP_H + length), 0,
                         static_cast<const uint8_t *>(payload), length, net, 0) == -1) {
        fprintf(stderr, "libnet_build_udp: %s\n", libnet_geterror(net));
        return -1;
    }
    if (libnet_build_ipv4(static_cast<uint16_t>(LIBNET_IPV4_H + LIBNET_UDP_H + length), 0, kIpv4Id, 0, kTimeToLive,
                          IPPROTO_UDP, 0, frame.ulSrcIP, frame.ulDstIP, nullptr, 0, net, 0) == -1) {
        fprintf(stderr, "libnet_build_ipv4: %s\n", libnet_geterror(net));
        return -1;
    }
    const uint8_t *dst_mac = is_zero(frame.dstMac) ? kBroadcastMac : frame.dstMac;
    if (libnet_build_ethernet(dst_mac, src_mac, ETHERTYPE_IP, nullptr, 0, net, 0) == -1) {
        fprintf(stderr, "libnet_build_ethernet: %s\n", libnet_geterror(net));
        return -1;
    }
    return 0;
}

} // namespace

void link_sender_close(libnet_context *sender)
{
    libnet_destroy(sender);
}

LinkSender link_sender_open(const char *ifname)
{
    char reason[LIBNET_ERRBUF_SIZE] = "";
    LinkSender sender(libnet_init(LIBNET_LINK, ifname, reason));
    if (!sender) {
        fprintf(stderr, "libnet_init: %s\n", reason);
        static_cast<void>(fail(kErrLinkLevel));
    }
    return sender;
}

void link_sender_mac_get(const LinkSender &sender, const uint8_t *fallback, uint8_t *mac)
{
    const libnet_ether_addr *own = libnet_get_hwaddr(sender.get());
    memcpy(mac, own != nullptr ? own->ether_addr_octet : fallback, ETHER_ADDR_LEN);
}

int link_sender_udp(const LinkSender &sender, const NET_UDP_FRAME &frame, const void *payload, int length)
{
    uint8_t src_mac[6];
    memcpy(src_mac, frame.srcMac, sizeof(src_mac));
    if (is_zero(src_mac))
        link_sender_mac_get(sender, kFallbackMac, src_mac);
    if (frame_build(sender.get(), frame, src_mac, payload, static_cast<uint32_t>(length)) != 0)
        return fail(kErrLinkLevel);
    const int written = libnet_write(sender.get());
    if (written == -1) {
        fprintf(stderr, "Write error: %s\n", libnet_geterror(sender.get()));
        return fail(kErrLinkLevel);
    }
    printf("%s construction and injection completed, wrote all %d bytes, port %d\n", "UDP packet", written,
           frame.usSrcPort);
    return 0;
}

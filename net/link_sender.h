// UDP datagrams in hand-made Ethernet frames: a station hears an appliance that has no usable address, and neither side
// needs ARP.
#pragma once

#include <cstdint>

#include "autocleanup/unique.h"

// Addresses of one datagram.
struct NET_UDP_FRAME {
    uint8_t srcMac[6];             // all zero: the interface's hardware address
    uint8_t dstMac[6];             // all zero: the Ethernet broadcast address
    uint32_t ulSrcIP, ulDstIP;     // network order
    uint16_t usSrcPort, usDstPort; // host order
};

struct libnet_context; // <libnet.h>
void link_sender_close(libnet_context *sender);

// An interface to write frames to. Closing one costs the kernel milliseconds, so what belongs together (the frames of
// one message, the repeats of one reply) goes through one sender; it is not meant to be kept longer.
using LinkSender = Unique<libnet_context *, nullptr, link_sender_close>;

// Opens an interface by name. Empty with 0x8000; the reason is told on standard error.
[[nodiscard]] LinkSender link_sender_open(const char *ifname);

// Stores the interface's hardware address; `fallback`, six bytes, when it cannot be had.
void link_sender_mac_get(const LinkSender &sender, const uint8_t *fallback, uint8_t *mac);

// Sends one datagram: Ethernet, IPv4 (id 242, time to live 64), UDP. A source address that is all zero and that the
// interface does not tell becomes 0D:0E:0A:0D:00:00.
//   payload, length  1 byte or more; the caller keeps it below the interface's MTU
// Tells the frame's size on standard output. Returns 0; -1 with 0x8000, the reason on standard error.
int link_sender_udp(const LinkSender &sender, const NET_UDP_FRAME &frame, const void *payload, int length);

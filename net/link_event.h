// Cable events, as route netlink tells them (rtnetlink(7), link group).
#pragma once

#include <cstdint>
#include <net/if.h>
#include <span>

struct LinkEvent {
    unsigned flags; // IFF_UP and so on
    char name[IFNAMSIZ];
};

// Takes the first named link off a batch of messages, which starts behind it then. Returns true with `*event` set;
// false when no more can be read, because the batch is at its end or a length in it is wrong.
[[nodiscard]] bool link_event_next(std::span<const uint8_t> *batch, LinkEvent *event);

// Reads one batch from the socket, without waiting, and has routes and DHCP clients follow the links that came or went.
// A DHCP client that does not do as it is told ends the batch, logged.
void LinkEventHandle(int netlink_fd);

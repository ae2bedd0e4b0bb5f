#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "lib/proc.h"
#include "lib/report.h"
#include "lib/text.h"
#include "net/link_event.h"
#include "net/norvjnet.h"

namespace
{

using Bytes = std::span<const uint8_t>;

// Reads the header that `bytes` begins with. Returns false when that, or the length it tells, goes beyond them.
template <typename Header> bool header_read(Bytes bytes, Header *header, auto Header::*length)
{
    if (bytes.size() < sizeof(Header))
        return false;
    memcpy(header, bytes.data(), sizeof(Header));
    return header->*length >= sizeof(Header) && header->*length <= bytes.size();
}

// Messages and attributes begin at multiples of four.
Bytes behind(Bytes bytes, size_t length)
{
    return bytes.subspan(std::min<size_t>(NLMSG_ALIGN(length), bytes.size()));
}

// Finds the interface name among the attributes of a link. Returns false when it has none.
bool name_find(Bytes attributes, char (&name)[IFNAMSIZ])
{
    rtattr attribute;
    for (; header_read(attributes, &attribute, &rtattr::rta_len); attributes = behind(attributes, attribute.rta_len)) {
        if (attribute.rta_type != IFLA_IFNAME)
            continue;
        const Bytes value = attributes.first(attribute.rta_len).subspan(sizeof(rtattr));
        const auto *text = reinterpret_cast<const char *>(value.data());
        text_cut(name, {text, strnlen(text, value.size())});
        return name[0] != '\0';
    }
    return false;
}

// Reads a whole message. Returns false when it is no link, or one without a name.
bool link_read(const nlmsghdr &header, Bytes message, LinkEvent *event)
{
    ifinfomsg link;
    if (header.nlmsg_type != RTM_NEWLINK || message.size() < NLMSG_LENGTH(sizeof(link)))
        return false;
    memcpy(&link, message.data() + NLMSG_HDRLEN, sizeof(link));
    event->flags = link.ifi_flags;
    return name_find(behind(message, NLMSG_LENGTH(sizeof(link))), event->name);
}

// Both return false when the DHCP client does not do as it is told: the rest waits for the next batch.
bool link_came_up(const char *name)
{
    NORVJNetRoutetableHandler(kRouteAdd, name);
    if (NORVJNetDeviceIsDHCP(name) != 1)
        return true;
    if (DhcpClientKill(name) != 0) {
        NORV_LOG(LOG_ERR, "Udhcp kill error");
        return false;
    }
    if (net_dhcp_client_start(name) != 0) {
        NORV_LOG(LOG_ERR, "run Udhcp error");
        return false;
    }
    return true;
}

bool link_went_down(const char *name)
{
    NORVJNetRoutetableHandler(kRouteRemove, name);
    if (DhcpClientKill(name) != 0) {
        NORV_LOG(LOG_ERR, "Udhcp kill error");
        return false;
    }
    if (NORVJNetDeviceIsDHCP(name) == 1 && NLIBCExec("/sbin/ifconfig", name, "inet", "0.0.0.0") != 0)
        NORV_LOG(LOG_ERR, "reset ip failed");
    return true;
}

} // namespace

bool link_event_next(Bytes *batch, LinkEvent *event)
{
    nlmsghdr header;
    while (header_read(*batch, &header, &nlmsghdr::nlmsg_len)) {
        const Bytes message = batch->first(header.nlmsg_len);
        *batch = behind(*batch, header.nlmsg_len);
        if (link_read(header, message, event))
            return true;
    }
    return false;
}

void LinkEventHandle(int netlink_fd)
{
    uint8_t block[4096];
    iovec room = {block, sizeof(block)};
    msghdr message = {};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    const auto received = recvmsg(netlink_fd, &message, MSG_DONTWAIT);
    if (received <= 0)
        return;
    Bytes batch(block, static_cast<size_t>(received));
    LinkEvent event;
    while (link_event_next(&batch, &event))
        if ((event.flags & IFF_SLAVE) == 0 &&
            !((event.flags & IFF_RUNNING) != 0 ? link_came_up(event.name) : link_went_down(event.name)))
            return;
}

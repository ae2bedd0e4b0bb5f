#include "applets/ncemd.h"

#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "lib/proc.h"
#include "lib/report.h"
#include "lib/text.h"
#include "net/norvjnet.h"

static constexpr size_t kMessageBytes = 4096;

int gblNetlinkFd = -1;

namespace
{

// Both return false when the DHCP client does not do as it is told: the rest waits for the next pass.
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

// Finds the interface name among the attributes of a link message. Returns false when it has none.
bool name_find(nlmsghdr *message, char (&name)[IFNAMSIZ])
{
    auto *link = static_cast<ifinfomsg *>(NLMSG_DATA(message));
    int rest = static_cast<int>(IFLA_PAYLOAD(message));
    for (rtattr *attribute = IFLA_RTA(link); RTA_OK(attribute, rest); attribute = RTA_NEXT(attribute, rest)) {
        if (attribute->rta_type != IFLA_IFNAME)
            continue;
        const auto *text = static_cast<const char *>(RTA_DATA(attribute));
        text_cut(name, {text, strnlen(text, RTA_PAYLOAD(attribute))});
        return name[0] != '\0';
    }
    return false;
}

// Returns false when the messages behind this one are not to be looked at.
bool message_serve(nlmsghdr *message)
{
    if (message->nlmsg_type != RTM_NEWLINK || message->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg)))
        return true;
    const unsigned flags = static_cast<const ifinfomsg *>(NLMSG_DATA(message))->ifi_flags;
    char name[IFNAMSIZ] = "";
    if (!name_find(message, name) || (flags & IFF_SLAVE) != 0)
        return true;
    return (flags & IFF_RUNNING) != 0 ? link_came_up(name) : link_went_down(name);
}

} // namespace

void ncemd_netlink_open()
{
    gblNetlinkFd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (gblNetlinkFd < 0) {
        NORV_LOG(LOG_ERR, "NCEMD netlink socket fail.\n");
        return;
    }
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (bind(gblNetlinkFd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        NORV_LOG(LOG_ERR, "NCEMD netlink bind fail.\n");
        close(gblNetlinkFd);
        gblNetlinkFd = -1;
    }
}

void ncemd_netlink_pass()
{
    if (gblNetlinkFd < 0)
        return;
    alignas(nlmsghdr) char block[kMessageBytes];
    iovec room = {block, sizeof(block)};
    msghdr header = {};
    header.msg_iov = &room;
    header.msg_iovlen = 1;
    auto rest = recvmsg(gblNetlinkFd, &header, MSG_DONTWAIT);
    auto *message = reinterpret_cast<nlmsghdr *>(block);
    while (rest > 0 && NLMSG_OK(message, static_cast<size_t>(rest)) && message_serve(message))
        message = NLMSG_NEXT(message, rest);
}

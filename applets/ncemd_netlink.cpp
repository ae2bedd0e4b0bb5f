#include "applets/ncemd.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include "lib/report.h"
#include "net/link_event.h"

int gblNetlinkFd = -1;

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
    if (gblNetlinkFd >= 0)
        LinkEventHandle(gblNetlinkFd);
}

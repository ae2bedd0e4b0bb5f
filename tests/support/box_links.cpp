#include "tests/support/box_links.h"

#include <cerrno>
#include <cstring>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/sandbox.h"

namespace
{

// A link message under construction; attributes may nest.
struct LinkMessage {
    alignas(nlmsghdr) char bytes[512] = {};

    LinkMessage(unsigned short type, unsigned short flags)
    {
        header()->nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
        header()->nlmsg_type = type;
        header()->nlmsg_flags = static_cast<unsigned short>(flags | NLM_F_REQUEST | NLM_F_ACK);
    }
    nlmsghdr *header() { return reinterpret_cast<nlmsghdr *>(bytes); }
    ifinfomsg *link() { return static_cast<ifinfomsg *>(NLMSG_DATA(header())); }

    size_t open(unsigned short type)
    {
        const size_t at = NLMSG_ALIGN(header()->nlmsg_len);
        reinterpret_cast<rtattr *>(bytes + at)->rta_type = type;
        header()->nlmsg_len = static_cast<uint32_t>(at + sizeof(rtattr));
        return at;
    }
    void raw(const void *data, size_t size)
    {
        memcpy(bytes + header()->nlmsg_len, data, size);
        header()->nlmsg_len += static_cast<uint32_t>(size);
    }
    void close(size_t at)
    {
        reinterpret_cast<rtattr *>(bytes + at)->rta_len = static_cast<unsigned short>(header()->nlmsg_len - at);
        header()->nlmsg_len = NLMSG_ALIGN(header()->nlmsg_len);
    }
    void number(unsigned short type, int value)
    {
        const size_t at = open(type);
        raw(&value, sizeof(value));
        close(at);
    }
    void text(unsigned short type, const std::string &value)
    {
        const size_t at = open(type);
        raw(value.c_str(), value.size() + 1);
        close(at);
    }
};

// Sends a message and takes the kernel's answer.
bool send(int netlink, LinkMessage *message)
{
    struct {
        nlmsghdr header;
        nlmsgerr error;
        char rest[512];
    } answer = {};
    if (::send(netlink, message->bytes, message->header()->nlmsg_len, 0) < 0 ||
        recv(netlink, &answer, sizeof(answer), 0) < 0)
        return false;
    errno = -answer.error.error;
    return answer.header.nlmsg_type == NLMSG_ERROR && answer.error.error == 0;
}

// An interface as the kernel tells it, zeros when there is none.
ifinfomsg link_get(int netlink, const std::string &name)
{
    LinkMessage message(RTM_GETLINK, 0);
    message.text(IFLA_IFNAME, name);
    union { // the kernel's first answer is the link, or tells what is wrong
        nlmsghdr header;
        char bytes[16384];
    } answer = {};
    message.header()->nlmsg_flags = NLM_F_REQUEST;
    if (::send(netlink, message.bytes, message.header()->nlmsg_len, 0) < 0 ||
        recv(netlink, &answer, sizeof(answer), 0) < 0 || answer.header.nlmsg_type != RTM_NEWLINK)
        return {};
    return *static_cast<const ifinfomsg *>(NLMSG_DATA(&answer.header));
}

} // namespace

BoxLinks::BoxLinks(const Sandbox &box) : netlink_(box.socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE)) {}

BoxLinks::BoxLinks(UniqueFd netlink) : netlink_(std::move(netlink)) {}

bool BoxLinks::wire(const std::string &left, const std::string &right)
{
    LinkMessage message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    message.text(IFLA_IFNAME, left);
    const size_t info = message.open(IFLA_LINKINFO);
    message.text(IFLA_INFO_KIND, "veth");
    const size_t data = message.open(IFLA_INFO_DATA);
    const size_t peer = message.open(VETH_INFO_PEER);
    const ifinfomsg peer_link = {};
    message.raw(&peer_link, sizeof(peer_link));
    message.text(IFLA_IFNAME, right);
    message.close(peer);
    message.close(data);
    message.close(info);
    return send(netlink_.get(), &message);
}

bool BoxLinks::live_wire(const std::string &left, const std::string &right)
{
    return wire(left, right) && set(left, true) && set(right, true) && settle(left, true) && settle(right, true);
}

bool BoxLinks::add(const std::string &name, const std::string &kind)
{
    LinkMessage message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    message.text(IFLA_IFNAME, name);
    const size_t info = message.open(IFLA_LINKINFO);
    message.text(IFLA_INFO_KIND, kind);
    message.close(info);
    return send(netlink_.get(), &message);
}

bool BoxLinks::enslave(const std::string &name, const std::string &master)
{
    LinkMessage message(RTM_NEWLINK, 0);
    message.text(IFLA_IFNAME, name);
    message.number(IFLA_MASTER, index(master));
    return send(netlink_.get(), &message);
}

int BoxLinks::index(const std::string &name)
{
    return link_get(netlink_.get(), name).ifi_index;
}

bool BoxLinks::settle(const std::string &name, bool runs)
{
    for (int tries = 0; tries < 1000; tries++, usleep(10000))
        if (((link_get(netlink_.get(), name).ifi_flags & IFF_RUNNING) != 0) == runs)
            return true;
    return false;
}

bool BoxLinks::set(const std::string &name, bool is_up)
{
    LinkMessage message(RTM_NEWLINK, 0);
    message.link()->ifi_change = IFF_UP;
    message.link()->ifi_flags = is_up ? IFF_UP : 0;
    message.text(IFLA_IFNAME, name);
    return send(netlink_.get(), &message);
}

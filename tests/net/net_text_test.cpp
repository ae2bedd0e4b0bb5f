// What the kernel and the system's files tell of the network, read from bytes.
#include <cstring>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <unistd.h>

#include "lib/report.h"
#include "lib/text.h"
#include "net/link_event.h"
#include "net/net_process_scan.h"
#include "net/net_text.h"
#include "net/norvjnet.h"
#include "tests/support/containers.h"

namespace
{

// The order of names, and those that are hidden, stand in the test of a kernel's interfaces.
TEST(NetStat, Lines)
{
    const struct {
        std::string lines;
        int room;
        std::vector<std::string> found; // name rx-bytes rx-packets tx-bytes tx-packets
    } kCases[] = {
        {"eth0:9223372036854775807 2 0 0 0 0 0 0 -3 4\n", 9, {"eth0 9223372036854775807 2 -3 4"}},
        {"b:\n a:\n c:\n", 2, {"a 0 0 0 0", "b 0 0 0 0"}},
        {"a-name-of-twenty-char: 5\n", 9, {"a-name-of-twent 5 0 0 0"}},
        {"eth0:" + std::string(600, ' ') + "\n eth1:\n", 9, {"eth0 0 0 0 0"}}, // no colon in the rest of a long line
    };
    for (const auto &row : kCases) {
        NET_STAT stats[9];
        const int count =
            net_stat_read(stream_of("Inter-| Receive\n face |bytes\n" + row.lines).get(), stats, row.room);
        std::vector<std::string> found;
        for (int i = 0; i < count; i++)
            found.push_back(std::string(stats[i].szName) + " " + std::to_string(stats[i].llRxBytes) + " " +
                            std::to_string(stats[i].llRxPackets) + " " + std::to_string(stats[i].llTxBytes) + " " +
                            std::to_string(stats[i].llTxPackets));
        EXPECT_EQ(found, row.found);
    }
    NET_STAT stat;
    EXPECT_EQ(net_stat_read(stream_of("one heading\n").get(), &stat, 1), -1);
    EXPECT_EQ(NLIBCErrGet(), kErrRead);
}

TEST(NetProcessScan, ClientsOfOneInterface)
{
    static constexpr char kOutput[] = "  PID USER COMMAND\n"
                                      "   12 root /sbin/udhcpc -i eth1 -p /etc/dhcpc/dhcpcd-eth1.pid -b\n"
                                      "   13 root /sbin/udhcpc -i eth10 -p x\n"
                                      "   14 root /bin/grep /sbin/udhcpc -i eth1\n"
                                      "   16 root sh -c grep x y | grep '/sbin/udhcpc -i eth1' # /sbin/udhcpc -i eth1\n"
                                      "    1 root /sbin/udhcpc -i eth1\n"
                                      "   -1 root /sbin/udhcpc -i eth1\n"
                                      "4294967295 root /sbin/udhcpc -i eth1\n"
                                      "99999999999999999999 root /sbin/udhcpc -i eth1\n"
                                      "2147483647 root /sbin/udhcpc -i eth1";
    pid_t found[4] = {};
    ASSERT_EQ(net_process_scan(kOutput, "/sbin/udhcpc -i eth1", found), 2);
    EXPECT_EQ(found[0], 12);
    EXPECT_EQ(found[1], 2147483647);
    EXPECT_EQ(net_process_scan(kOutput, "/sbin/udhcpc -i eth1", std::span(found).first(1)), 1);
}

TEST(NetIsValidIpMask, WhatAnInterfaceMayHave)
{
    static constexpr struct {
        const char *ip, *mask, *rewritten; // NULL: refused
    } kCases[] = {
        {"192.168.1.5", "255.255.255.0", "255.255.255.0"},
        {"192.168.1.255", "255.255.255.0", nullptr},
        {"192.168.1.255", "255.255.0.0", "255.255.0.0"},
        {"0x0a.012.1.1", "0xff.0377.0.0", "255.255.0.0"},
        {"10.0.0.3", "255.255.255.254", nullptr},
        {"127.0.0.5", "255.0.0.0", nullptr},
        {"224.0.0.1", "255.0.0.0", nullptr},
        {"10.0.0.1", "0.0.0.0", nullptr},
        {"10.0.0.1", "255.0.255.0", nullptr},
        {"10.0.0.256", "255.0.0.0", nullptr},
        {"10.0.0.09", "255.0.0.0", nullptr},
        {"10.0.0.1", "255.0.0.0 ;reboot", nullptr},
        {"10.0.0.1", "0x000ff.0.0.0.......", nullptr}, // fills the room to its last byte
    };
    for (const auto &row : kCases) {
        char mask[kNetAddressRoom] = {};
        memcpy(mask, row.mask, strnlen(row.mask, sizeof(mask)));
        EXPECT_EQ(net_is_valid_ip_mask(row.ip, mask), row.rewritten != nullptr ? 1 : 0) << row.ip << " " << row.mask;
        EXPECT_TRUE(row.rewritten == nullptr || text_view(mask) == row.rewritten) << row.mask;
    }
}

using Bytes = std::vector<uint8_t>;

// A message of a type with the flags of its link and attributes, which may lie about their lengths.
Bytes message(uint16_t type, uint32_t flags, const Bytes &attributes, uint32_t length = 0)
{
    Bytes bytes(NLMSG_LENGTH(sizeof(ifinfomsg)));
    bytes.insert(bytes.end(), attributes.begin(), attributes.end());
    length = length != 0 ? length : static_cast<uint32_t>(bytes.size());
    memcpy(bytes.data(), &length, sizeof(length));
    memcpy(bytes.data() + 4, &type, sizeof(type));
    memcpy(bytes.data() + NLMSG_HDRLEN + 8, &flags, sizeof(flags));
    bytes.resize(NLMSG_ALIGN(bytes.size()));
    return bytes;
}
Bytes attribute(uint16_t type, const std::string &value, size_t length = 0)
{
    length = length != 0 ? length : sizeof(rtattr) + value.size();
    Bytes bytes = {static_cast<uint8_t>(length), 0, static_cast<uint8_t>(type), 0};
    bytes.insert(bytes.end(), value.begin(), value.end());
    bytes.resize(NLMSG_ALIGN(bytes.size()));
    return bytes;
}
Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

TEST(LinkEvent, WalksBatchesAndStopsAtALie)
{
    using namespace std::string_literals;
    const Bytes kEth0 = message(RTM_NEWLINK, IFF_RUNNING, attribute(IFLA_IFNAME, "eth0\0"s));
    const struct {
        Bytes batch;
        std::string events; // "name flags" each
    } kCases[] = {
        {joined({kEth0, message(RTM_NEWLINK, 1, joined({attribute(IFLA_MTU, "1234"), attribute(IFLA_IFNAME, "b")}))}),
         "eth0 64|b 1|"},
        {joined({message(RTM_DELLINK, 1, attribute(IFLA_IFNAME, "gone")), kEth0}), "eth0 64|"},
        {joined({message(RTM_NEWLINK, 1, attribute(IFLA_MTU, "1234")), kEth0}), "eth0 64|"},
        {joined({message(RTM_NEWLINK, 1, attribute(IFLA_IFNAME, "eth1", 200)), kEth0}), "eth0 64|"},
        {joined({message(RTM_NEWLINK, 1, attribute(IFLA_IFNAME, "eth1", 3)), kEth0}), "eth0 64|"},
        {message(RTM_NEWLINK, 1, attribute(IFLA_IFNAME, "a-name-of-twenty-chr")), "a-name-of-twent 1|"},
        {joined({message(RTM_NEWLINK, 1, {}, 15), kEth0}), ""},
        {joined({message(RTM_NEWLINK, 1, {}, 5000), kEth0}), ""},
        {joined({message(RTM_NEWLINK, 1, {}, 16), kEth0}), ""}, // goes on inside the link's bytes
        {Bytes(kEth0.begin(), kEth0.end() - 1), ""},
        {{}, ""},
    };
    for (const auto &row : kCases) {
        const Bytes exact(row.batch); // a sanitizer sees a byte too many
        std::span<const uint8_t> rest(exact);
        std::string events;
        for (LinkEvent event; link_event_next(&rest, &event);)
            events += std::string(event.name) + " " + std::to_string(event.flags) + "|";
        EXPECT_EQ(events, row.events) << &row - kCases;
    }
}

} // namespace

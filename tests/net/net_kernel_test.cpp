// Interfaces of a kernel: wires, bridges, taps and bonds in a network of their own, with the kernel's own /sys.
#include <cerrno>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net/net.h"
#include "tests/support/box_links.h"
#include "tests/support/in_child.h"
#include "tests/support/private_mounts.h"

namespace
{

// Runs `body` in a network of its own, with one interface of a kind in it if a name is given.
void in_own_network(const std::string &name, const std::string &kind, const std::function<void(BoxLinks &)> &body)
{
    enum { kRan, kNoNetwork, kNoSuchKind };
    const int outcome = in_child([&] {
        if (!private_mounts_enter(CLONE_NEWNET) || mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
            return kNoNetwork;
        BoxLinks links(UniqueFd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)));
        if (!name.empty() && !links.add(name, kind))
            return kNoSuchKind;
        body(links);
        return kRan;
    });
    if (outcome != kRan)
        GTEST_SKIP() << "this kernel has no " << (outcome == kNoNetwork ? "network of one's own" : kind);
}

std::string listed(int mode)
{
    NET_IF_INFO table[kNetInterfacesMax];
    const int count = NLIBNetGetInterfaceInfo(table, kNetInterfacesMax, mode);
    EXPECT_EQ(NLIBNetGetInterfaceInfo(nullptr, kNetInterfacesMax, mode), count);
    std::string names;
    for (int i = 0; i < count; i++)
        names += std::string(table[i].szName) + (table[i].nLink == kNetLinkUp ? "+ " : " ");
    return names;
}

TEST(NetKernel, ListsWhatEachModeSees)
{
    in_own_network("", "", [](BoxLinks &links) {
        EXPECT_EQ(listed(kNetPhysical), ""); // nothing but the loopback, which is down
        for (const char *name : {"eth0", "eth1", "eth10", "eth2"})
            ASSERT_TRUE(links.wire(name, std::string("tap-") + name) && links.set(name, true)) << strerror(errno);
        ASSERT_TRUE(links.set("tap-eth10", true) && links.set("lo", true));
        for (const char *name : {"eth0", "eth1", "eth2"})
            ASSERT_TRUE(links.settle(name, false));
        ASSERT_TRUE(links.settle("eth10", true));
        EXPECT_EQ(listed(kNetPhysical), "eth0 eth1 eth2 eth10+ ");
        EXPECT_EQ(listed(kNetVirtual), "eth0 eth1 eth2 eth10+ ");
        EXPECT_EQ(listed(kNetPointToPoint | 4 | 16), "eth0 eth1 eth2 eth10+ ");
        EXPECT_EQ(NLIBNetGetInterfaceInfo(nullptr, 1, 4 | 16), -1);
        NET_IF_INFO two[2];
        EXPECT_EQ(NLIBNetGetInterfaceInfo(two, 2, kNetPhysical), 2);

        for (const char *hidden : {"docker0", "tap0", "mon.wlan0", "gbr0", "xgwlan1"})
            ASSERT_TRUE(links.wire(hidden, std::string("dnos-") + hidden) && links.set(hidden, true));
        EXPECT_EQ(listed(kNetPhysical), "eth0 eth1 eth2 eth10+ ");
        ASSERT_TRUE(links.set("eth1", false));
        EXPECT_EQ(listed(kNetPhysical), "eth0 eth2 eth10+ ");

        NET_STAT stat;
        EXPECT_EQ(NetStatGet("eth10", &stat), 0);
        EXPECT_EQ(NetStatGet("tap0", &stat), -1);
    });
}

TEST(NetKernel, PortsOfABridgeAreListedNowhere)
{
    in_own_network("br0", "bridge", [](BoxLinks &links) {
        ASSERT_TRUE(links.wire("eth0", "tap-eth0") && links.enslave("eth0", "br0"));
        ASSERT_TRUE(links.set("eth0", true) && links.set("br0", true) && links.set("tap-eth0", true));
        for (const int mode : {1, 2, 3, 8})
            EXPECT_TRUE(listed(mode) == "br0 " || listed(mode) == "br0+ ") << listed(mode);
    });
}

TEST(NetKernel, MembersOfABondAndTheBondItself)
{
    in_own_network("bond0", "bond", [](BoxLinks &links) {
        ASSERT_TRUE(links.wire("eth0", "tap-eth0") && links.enslave("eth0", "bond0"));
        ASSERT_TRUE(links.set("bond0", true) && links.set("tap-eth0", true));
        EXPECT_TRUE(listed(kNetPhysical) == "eth0 " || listed(kNetPhysical) == "eth0+ ") << listed(kNetPhysical);
        EXPECT_TRUE(listed(kNetVirtual) == "bond0 " || listed(kNetVirtual) == "bond0+ ") << listed(kNetVirtual);
    });
}

} // namespace

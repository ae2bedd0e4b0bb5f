// The roles that put the appliance's ports in order, and the one that asks who is near. Interfaces are the kernel's.
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "build_paths.h"
#include "net/link_event.h"
#include "tests/support/box_links.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf";

struct NetBox : Sandbox {
    BoxLinks links;

    NetBox() : links(*this)
    {
        file(kDefaults, "supportraid=no\n");
        compress_sleeps();
        leaves({"/etc/*"});
    }
    void port(const std::string &name, bool runs = true)
    {
        ASSERT_TRUE(links.wire(name, "tap-" + name) && links.set(name, true)) << strerror(errno);
        ASSERT_TRUE(links.set("tap-" + name, runs) && links.settle(name, runs));
    }
};

TEST(StartTelnet, StartsTheServerForANeighbourOnly)
{
    const std::string kHeader =
        "Expires: Mon, 26 Jul 1990 05:00:00 GMT\r\nCache-Control: no-store, no-cache, "
        "must-revalidate\r\nPragma: no-cache\r\nContent-type: text/html; charset=\"UTF-8\"\r\n\r\n";
    constexpr char kSet[] = "settimeofday 946684800.000000", kInetd[] = "run /usr/sbin/inetd";
    const struct {
        const char *zone;                        // NULL: a request without an address
        int arping, foreign, inetd, clock_error; // the first two: whether the neighbour and a foreign address answer
        bool runs;
        std::string record, last; // its end
        bool is_success;
    } kCases[] = {
        {"TZ=UTC", 0, 1, 0, 0, false, std::string(kSet) + "\nrun /bin/sh -c /usr/sbin/inetd", kInetd, true},
        {"TZ=UTC-1", 0, 1, 0, EPERM, true, "settimeofday 946681200.000000 = EPERM",
         "log err *(SetTime) failed to settimeofday [errno = Operation not *", true},
        {"TZ=UTC", 0, 1, 0, 0, true, "", kSet, true},
        {"TZ=UTC", 0, 1, 1, 0, false, kInetd, "log err * FHOSTinetdStart fail", false},
        {"TZ=UTC", 1, 0, 0, 0, false, "", "run /usr/sbin/arping -I eth1 -c 1 *", false},
        {"TZ=UTC", 0, 0, 0, 0, false, "", "run /usr/sbin/arping -I eth1 -c 1 *", false},
        {nullptr, 0, 1, 0, 0, false, "log err * The remote addr is orz", "log err * The remote addr is NULL", false},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.last);
        NetBox box;
        box.port("eth0", false);
        box.port("eth1");
        box.program("/usr/sbin/arping", {{.args = "-I eth1 -c 1 10.0.0.9", .exit_status = row.arping},
                                         {.args = "-I eth1 -c 1 8.8.8.8", .exit_status = row.foreign}});
        box.program("/usr/sbin/inetd", {{.exit_status = row.inetd}});
        if (row.runs)
            box.file("/var/run/inetd.pid", "1\n");
        if (row.clock_error != 0)
            box.call({.call = "settimeofday", .error = row.clock_error});
        RunOptions request;
        if (row.zone != nullptr)
            request.env = {"REMOTE_ADDR=10.0.0.9", row.zone};
        const Result result = box.run({"start_telnet.cgi"}, request);
        EXPECT_EQ(result.out, kHeader + (row.is_success ? "{\"success\": true}" : "{\"success\": false}"));
        EXPECT_EQ(result.exit_status, row.is_success ? 0 : 255);
        EXPECT_TRUE(result.record.in_order(lines(row.record + "\n" + row.last)));
        Record end; // nothing follows
        end.lines = {result.record.lines.back()};
        EXPECT_EQ(end.count(row.last), 1) << result.record.text();
        EXPECT_EQ(box.unexpected_calls(), "");
    }
}

// Puts a PCI device behind an interface.
void pci_place(Sandbox &box, const std::string &name, const std::string &port, const std::string &device)
{
    const std::string folder = "/sys/devices/pci0000:00/" + port + "/" + device;
    box.directory(folder);
    box.symlink("/sys/class/net/" + name + "/device", folder);
    if (!box.exists("/sys/bus/pci/devices/" + port))
        box.symlink("/sys/bus/pci/devices/" + port, "/sys/devices/pci0000:00/" + port);
}

// The names that interfaces got, in order, since the socket was opened.
std::string renames(int netlink)
{
    std::string names;
    for (;;) {
        uint8_t block[16384];
        const ssize_t bytes = recv(netlink, block, sizeof(block), MSG_DONTWAIT);
        if (bytes <= 0)
            return names;
        std::span<const uint8_t> batch(block, static_cast<size_t>(bytes));
        for (LinkEvent event; link_event_next(&batch, &event);)
            names += std::string(event.name) + " ";
    }
}

TEST(NetSeqAdjust, PortsFollowTheLabels)
{
    static constexpr char kTwo[] = "eth0=01.0/01:00.0 eth1=02.0/02:00.0 ";
    const struct {
        const char *what, *internal, *defaults;
        std::string ports;     // name=port/device each, without what all PCI names here begin with
        const char *after;     // their names, in the same order
        const char *log = "*"; // one line
        const char *extensions = nullptr, *listed = nullptr; // the extension ports, the list of ports
    } kCases[] = {
        {"revision's own key", "2", "netif_seq=0 1\nnetif_seq_r2=\" 1  0\"\n", kTwo, "eth1 eth0 "},
        {"PCI order", "3", "netif_seq=\"\"\nnetif_seq_r2=\"\"\n",
         "eth0=03.0/03:00.0 eth1=01.0/01:00.0 eth2=02.0/02:00.0 ", "eth2 eth0 eth1 "},
        {"a card goes behind four", "4", "",
         "eth0=00.1/00:05.0 eth1=00.1/00:05.1 eth2=02.0/02:00.0 eth3=02.0/02:00.1 eth4=03.0/03:00.0 eth5=03.0/03:00.1 ",
         "eth4 eth5 eth0 eth1 eth2 eth3 ", "*", "[pci]\na=0000:00:00.1\n"},
        {"listed ports go last", "2", "", kTwo, "eth1 eth0 ", "*", nullptr, "\n0000:00:01.0\n"},
        {"too few found", "4", "", "eth0=02.0/02:00.0 eth1=01.0/01:00.0 ", "eth0 eth1 ",
         "log err * Error internal NIC devices 2 does not equal to internal NIC number 4*"},
        {"wrong count of items", "2", "netif_seq=1 0 2\n", kTwo, "eth0 eth1 ",
         "log err * internal nic number 2 doesn't match the number of items 3 defined in netif_seq*"},
        {"no extension ports", "2", "netif_seq=1 0\n", kTwo, "eth0 eth1 ",
         "log err * error happens when checking if devices on extension port*", "[pci]\n"},
        {"wlan is no port", "0", "", "wlan0=01.0/01:00.0 eth1=02.0/02:00.0 ", "wlan0 eth0 "},
        {"out-of-band port", "2", "support_oob_ctl=yes\nunique=norv_x86_oob1\noob_interface=oob0\n",
         "eth0=1c.2/09:00.0 eth1=1d.0/0a:00.0 ", "oob0 eth0 "},
        {"too many built in, then a card", "1", "", std::string(kTwo) + "eth2=03.0/03:00.0 ", "eth0 eth1 eth2 ",
         "log err * Error internal NIC devices 2 does not equal to internal NIC number 1*", "[pci]\na=0000:00:03.0\n"},
        {"cards on listed ports", "1", "", "eth0=01.0/02:00.0 eth1=01.0/01:00.1 eth2=03.0/03:00.0 eth3=04.0/04:00.0 ",
         "eth3 eth2 eth1 eth0 ", "*", "[other]\nx=0000:00:04.0\n[pci]\na=0000:00:01.0\nb=0000:00:03.0\n",
         "0000:00:03.0\r\n\n  0000:00:01.0\n"},
        {"spare name is taken", "2", "netif_seq=1 0\n", kTwo + std::string("eth5= "), "eth0 eth1 eth5 ",
         "log err * failed to rename eth1 to eth5*"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.what);
        NetBox box;
        box.file(kDefaults, "maxlanport=1\n" + std::string(row.defaults));
        box.file("/proc/sys/kernel/norv_hw_revision", "r2\n");
        box.file("/proc/sys/kernel/norv_internal_netif_num", row.internal);
        if (row.listed != nullptr)
            box.file("/etc.defaults/extensionNicSeq", row.listed);
        if (row.extensions != nullptr)
            box.file("/etc.defaults/extensionPorts", row.extensions);
        std::vector<int> indices, after;
        for (const std::string &port : words(row.ports)) {
            const size_t equal = port.find('='), slash = port.find('/');
            const std::string name = port.substr(0, equal);
            ASSERT_TRUE(box.links.wire(name, "tap-" + name));
            indices.push_back(box.links.index(name));
            if (slash != std::string::npos)
                pci_place(box, name, "0000:00:" + port.substr(equal + 1, slash - equal - 1),
                          "0000:" + port.substr(slash + 1));
        }
        const Result result = box.run({"norvnetseqadj"});
        const bool stops = row.log[0] != '*' && strstr(row.log, "rename") == nullptr;
        EXPECT_EQ(result.exit_status, stops ? 255 : 0);
        EXPECT_GT(result.record.count(row.log), 0) << result.record.text();
        for (const std::string &name : words(row.after))
            after.push_back(box.links.index(name));
        EXPECT_EQ(after, indices);
    }
    NetBox box;
    box.file(kDefaults, "maxlanport=\"\"\n");
    EXPECT_EQ(box.run({"norvnetseqadj"}).exit_status, 0);
    EXPECT_EQ(box.record().count("log err * Skip network interface adjust*"), 1);
    box.remove(kDefaults);
    EXPECT_EQ(box.run({"norvnetseqadj"}).exit_status, 255);
    box.file("/proc/sys/kernel/norv_internal_netif_num", "2");
    box.file(kDefaults, "maxlanport=1\nsupport_oob_ctl=yes\noob_interface=\"\"\n");
    EXPECT_EQ(box.run({"norvnetseqadj"}).exit_status, 255);
}

TEST(NetSeqAdjust, SwapGoesThroughTheSpareNameAndTellsTheDriver)
{
    for (const bool second_write_fails : {false, true}) {
        NetBox box;
        box.file(kDefaults, "maxlanport=2\nnetif_seq=1 0\n");
        box.file("/proc/sys/kernel/norv_internal_netif_num", "2\n");
        box.file("/proc/sys/kernel/norv_unsupported_sfp_notify", "7 8 9\n");
        ASSERT_TRUE(box.links.wire("eth0", "tap0") && box.links.wire("eth1", "tap1"));
        pci_place(box, "eth0", "0000:00:01.0", "0000:01:00.0");
        pci_place(box, "eth1", "0000:00:02.0", "0000:02:00.0");
        const UniqueFd netlink(box.socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE));
        sockaddr_nl address = {};
        address.nl_family = AF_NETLINK;
        address.nl_groups = RTMGRP_LINK;
        ASSERT_EQ(bind(netlink.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        const std::string kNotify = "/proc/sys/kernel/norv_unsupported_sfp_notify";
        if (second_write_fails)
            box.call({.call = "write", .args = kNotify + "*", .error = EIO, .skip = 1});
        const Result result = box.run({"norvnetseqadj"});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, "going to change name of eth0 to eth1\n");
        EXPECT_EQ(renames(netlink.get()), "eth4 eth1 eth0 ");
        EXPECT_EQ(box.read_file(kNotify), second_write_fails ? "7 1 9\n" : "8 0 9\n"); // each at the file's start
        EXPECT_EQ(result.record.count("log err * failed to swap *"), second_write_fails ? 1 : 0);
        EXPECT_EQ(result.record.count("sleep 1"), 1);
    }

    NetBox up; // a port that is up stays as it is, and the others go on
    up.file(kDefaults, "maxlanport=2\nnetif_seq=1 2\n");
    up.file("/proc/sys/kernel/norv_internal_netif_num", "2\n");
    up.directory("/proc/sys/kernel/norv_unsupported_sfp_notify");
    ASSERT_TRUE(up.links.wire("eth0", "tap0") && up.links.wire("eth5", "tap1"));
    const int eth5 = up.links.index("eth5");
    pci_place(up, "eth0", "0000:00:01.0", "0000:01:00.0");
    pci_place(up, "eth5", "0000:00:02.0", "0000:02:00.0");
    up.file("/sys/class/net/eth0/flags", "0x1003\n");
    const Result second = up.run({"norvnetseqadj"});
    EXPECT_EQ(second.exit_status, 0);
    EXPECT_TRUE(second.record.in_order(
        {"log err * eth0 is up, please down it before rename", "log err * failed to rename eth0 to eth1*",
         "log err * Failed to open SFP notify file.", "log err * failed to swap norv_unsupported_sfp_notify*"}));
    EXPECT_EQ(up.links.index("eth2"), eth5);
}

TEST(LanStatus, PowersTheControllersUntilBothAreThere)
{
    constexpr char kGpioLow[] = "board 0xc0044bce gpio_write 4 0*", kGpioHigh[] = "board 0xc0044bce gpio_write 4 1*";
    const struct {
        int present;
        int appear_at; // load of the module after which there are two, 0: never
        int resets;
    } kCases[] = {{2, 0, 0}, {1, 3, 3}, {3, 0, 60}};
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.present);
        NetBox box;
        const auto controller = [&](int number) {
            const std::string device = "/sys/class/net/eth" + std::to_string(number) + "/device/";
            box.file(device + "vendor", "0x8086\n");
            box.file(device + "device", "0x15ad\n");
        };
        box.file("/etc.defaults/modules.conf", "module_ixgbe_args_broadwell=\"allow_unsupported_sfp=1 x=2\"\n");
        box.file("/lib/modules/ixgbe.ko", "");
        for (int i = 0; i < row.present; i++)
            controller(i);
        box.file("/sys/class/net/eth8/device/vendor", "0x8086\n");
        box.file("/sys/class/net/eth8/device/device", "0x1521\n");
        box.leaves({"/sys/*"});
        Process process = box.start({"norvlanstatus"}, {.seconds = 60});
        if (row.appear_at > 0) {
            while (box.record().count("finit_module *") < row.appear_at && process.running())
                usleep(1000);
            controller(1);
        }
        const Result result = process.wait();
        EXPECT_EQ(result.exit_status, 0);
        const int resets = result.record.count("delete_module ixgbe *");
        EXPECT_GE(resets, row.resets);
        EXPECT_LE(resets, row.appear_at > 0 ? 60 : row.resets); // it does not wait for us
        EXPECT_EQ(result.record.count(kGpioLow), resets);
        EXPECT_EQ(result.record.count("log err * norvlanstatus reset " + std::to_string(resets) + " times"),
                  resets > 0 ? 1 : 0);
        if (resets > 0) {
            EXPECT_TRUE(result.record.in_order({"delete_module ixgbe *", kGpioHigh, "sleep 1",
                                                "finit_module *ixgbe.ko 'allow_unsupported_sfp=1 x=2'*"}));
            const std::string whole = result.record.text(); // the first reset's pause lies between low and high
            const size_t pause = whole.find("usleep 500000");
            EXPECT_TRUE(whole.find("gpio_write 4 0") < pause && pause < whole.find("gpio_write 4 1")) << whole;
        }
    }
    NetBox box;
    EXPECT_EQ(box.run({"norvlanstatus"}).exit_status, 255);
    EXPECT_EQ(box.record().count("log err * Failed to get key module_ixgbe_args_broadwell from "
                                 "/etc.defaults/modules.conf"),
              1);
}

} // namespace

// Addresses, names and routes of the appliance, and the roles that put its ports in order. Interfaces are the kernel's;
// most tools are stand-ins.
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
const std::string kConfig = "/etc/sysconfig/network-scripts/ifcfg-";

// A box with two wired ports and the tools that change them.
struct NetBox : Sandbox {
    BoxLinks links;

    NetBox() : links(*this)
    {
        file(kDefaults, "supportraid=no\n");
        host_file("/bin/net_calls", NET_CALLS);
        for (const std::string &path : words("/sbin/ifconfig /sbin/route /sbin/udhcpc /usr/bin/killall /bin/ps "
                                             "/bin/grep /usr/sbin/arping /usr/sbin/inetd"))
            program(path);
        directory("/etc/sysconfig/network-scripts");
        directory("/etc/dhcpc");
        compress_sleeps();
        leaves({"/etc/*"});
    }
    // The result and texts of a call, "eth0/1/10.0.0.1/255.0.0.0 1".
    std::string call_net(const std::string &command)
    {
        const Result result = run(words(command, "/bin/net_calls"));
        EXPECT_EQ(result.exit_status, 0);
        return result.out.substr(0, result.out.find('\n'));
    }
    void port(const std::string &name, bool runs = true)
    {
        ASSERT_TRUE(links.wire(name, "tap-" + name) && links.set(name, true)) << strerror(errno);
        ASSERT_TRUE(links.set("tap-" + name, runs) && links.settle(name, runs));
    }
};

TEST(NetCard, ReadsStaticAndLeasedAddresses)
{
    NetBox box;
    box.port("eth0");
    box.port("eth1");
    box.port("eth2");
    box.file(kConfig + "eth0", "BOOTPROTO=static\nIPADDR=10.1.2.3\nNETMASK=255.255.0.0\n");
    box.file(kConfig + "eth1", "BOOTPROTO=dhcp\n");
    box.file("/etc/dhcpc/dhcpcd-eth1.info", "IPADDR=10.9.8.7\nNETMASK=255.0.0.0\n");
    EXPECT_EQ(box.call_net("card 0"), "eth0/1/10.1.2.3/255.255.0.0 1");
    EXPECT_EQ(box.call_net("card 1"), "eth1/0/10.9.8.7/255.0.0.0 1");
    EXPECT_EQ(box.call_net("card 2"), "eth2/1// -1"); // no file: it is made, static
    EXPECT_EQ(box.read_file(kConfig + "eth2"), "BOOTPROTO=static\n");
    EXPECT_EQ(box.call_net("card 3"), "/0// 0");
    EXPECT_EQ(box.call_net("card 32").substr(4), " -1");
    EXPECT_EQ(box.call_net("card 10.1.2.3"), "/0// 0"); // what counts is what the interface holds now
    EXPECT_EQ(box.record().count("sleep 1"), 0);
    box.remove("/etc/dhcpc/dhcpcd-eth1.info");
    EXPECT_EQ(box.call_net("card 1"), "eth1/0// -1");
    EXPECT_EQ(box.record().count("sleep 1"), 3);
    EXPECT_TRUE(box.record().in_order({"log err NORVJNetDeviceIsDHCP(*) Get BOOTPROTO failed.(*)",
                                       "log err NORVJNetGetCard1(*) Get IP from *ifcfg-eth2 fail",
                                       "log err NORVJNetGetCard1(*) Get IP from *dhcpcd-eth1.info fail"}));
    box.file("/etc/dhcpc/dhcpcd-eth1.info", "IPADDR=10.9.8.7\n");
    EXPECT_EQ(box.call_net("card 1"), "eth1/0/10.9.8.7/ -1");
}

TEST(NetCard, StaticAddressIsSetOrUndone)
{
    const struct {
        int ifconfig_status;
        const char *old_file;
        std::string file;
        const char *result;
        const char *failing_call = nullptr;
    } kCases[] = {
        {0, "BOOTPROTO=dhcp\n", "IPADDR=10.1.2.3\nNETMASK=255.255.0.0\nBOOTPROTO=static\nONBOOT=yes\n", "0"},
        {1, "BOOTPROTO=dhcp\nX=1\n", "BOOTPROTO=dhcp\nX=1\n", "-1"},
        {0, "BOOTPROTO=dhcp\n", "BOOTPROTO=dhcp\n", "-1", "sethostname"}, // the last step
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(&row - kCases);
        NetBox box;
        box.port("eth0");
        box.program("/sbin/ifconfig", {{.args = "eth0 10.1.2.3 netmask 255.255.0.0 broadcast 10.1.255.255",
                                        .exit_status = row.ifconfig_status}});
        box.program("/bin/grep",
                    {{.args = "'/sbin/udhcpc -i eth0'", .output = "  2147483646 x /sbin/udhcpc -i eth0\n"}});
        box.call({.call = "kill", .error = ESRCH});
        if (row.failing_call != nullptr)
            box.call({.call = row.failing_call, .error = EPERM});
        box.file("/etc/hosts", "old\n");
        const bool is_set = row.result[0] == '0';
        box.file(kConfig + "eth0", row.old_file);
        box.file("/etc/ppp/old_gateway.bak", "");
        box.file("/etc/resolv.conf.bak", "");
        EXPECT_EQ(box.call_net("card_set eth0 10.1.2.3 0xff.255.0.0"), row.result);
        EXPECT_EQ(box.read_file(kConfig + "eth0"), row.file);
        EXPECT_EQ(box.list("/etc/sysconfig/network-scripts").size(), 1U); // no backup stays
        EXPECT_EQ(box.exists("/etc/resolv.conf.bak"), !is_set);
        EXPECT_EQ(box.exists("/etc/ppp/old_gateway.bak"), !is_set);
        EXPECT_EQ(box.read_file("/etc/hosts") == "old\n", !is_set);
        for (const std::string &name : box.list("/etc"))
            EXPECT_FALSE(name.starts_with("hosts.")) << name;
        EXPECT_EQ(box.list("/tmp").size(), 0U);
        EXPECT_EQ(box.record().count("kill 2147483646 9 *"), 2) << box.record().text();
        EXPECT_EQ(box.unexpected_calls(), "");
    }
    NetBox box;
    for (const std::string address : {"127.0.0.5 255.0.0.0", "10.0.0.1 ''", "10.0.0.255 255.255.255.0"})
        EXPECT_EQ(box.call_net("card_set eth0 " + address), "-1");
    EXPECT_EQ(box.programs_called(), "");
}

TEST(NetCard, DhcpStepsAndTheirFailures)
{
    const struct {
        int kill_status, client_status;
        bool has_folder;
        const char *result;
    } kCases[] = {{1, 0, true, "0"}, {0, 1, true, "-1"}, {0, 0, false, "-2"}};
    for (const auto &row : kCases) {
        SCOPED_TRACE(&row - kCases);
        NetBox box;
        box.program("/sbin/ifconfig", {{.args = "eth0 0.0.0.0", .exit_status = row.kill_status}});
        box.program("/sbin/udhcpc",
                    {{.args = "-i eth0 -p /etc/dhcpc/dhcpcd-eth0.pid -b", .exit_status = row.client_status}});
        box.file(kConfig + "eth0", "IPADDR=1.2.3.4\n");
        for (const char *call : {"fsync", "rename"})
            box.call({.call = call, .real = true});
        if (!row.has_folder)
            box.remove("/etc/sysconfig/network-scripts");
        EXPECT_EQ(box.call_net("card_set eth0"), row.result);
        EXPECT_EQ(box.record().count("log err NORVJLnxSetDHCP(*) kill udhcpc error *"), row.kill_status);
        EXPECT_EQ(box.record().count("log err NORVJLnxSetDHCP(*) run udhcpc error *"), row.client_status);
        EXPECT_EQ(box.record().count("log err NORVJLnxSetDHCP(*) Set *ifcfg-eth0 error."), row.has_folder ? 0 : 1);
        if (row.result[0] == '0') {
            EXPECT_TRUE(box.record().in_order({"fsync *ifcfg-eth0.*", "rename *ifcfg-eth0.* *ifcfg-eth0", "sleep 30"}));
        } else {
            EXPECT_EQ(box.record().count("sleep 30"), 0);
        }
        if (row.has_folder) {
            EXPECT_EQ(box.read_file(kConfig + "eth0"),
                      row.client_status == 0 ? "BOOTPROTO=dhcp\nONBOOT=yes\n" : "IPADDR=1.2.3.4\n");
        }
        EXPECT_TRUE(box.record().in_order({"run /usr/bin/killall udhcpc", "run /sbin/ifconfig eth0 0.0.0.0"}));
    }
}

TEST(NetHostname, IsSetBetweenTheWritingAndTheRenaming)
{
    NetBox box;
    EXPECT_EQ(box.call_net("host_name_set nas"), "-1"); // no interface: nothing to name
    EXPECT_TRUE(box.record().in_order({"log err NORVJNetSetHostname(*) NORVNetEnumCard fail.(nCard=0)"}));
    box.port("eth0");
    box.port("eth1");
    box.file(kConfig + "eth0", "BOOTPROTO=static\nIPADDR=10.1.2.3\nNETMASK=255.255.0.0\n");
    box.file("/etc/hosts", "old\n");
    for (const char *call : {"fsync", "sethostname", "rename"})
        box.call({.call = call, .real = true});
    EXPECT_EQ(box.call_net("host_name_set nas.lan"), "0");
    EXPECT_TRUE(
        box.record().in_order({"fsync */etc/hosts.tmp*", "sethostname nas.lan*", "rename /etc/hosts.tmp* /etc/hosts"}));
    EXPECT_EQ(box.read_file("/etc/hosts"), "127.0.0.1\tlocalhost\n10.1.2.3\tnas.lan\n"); // eth1 has no address
    EXPECT_EQ(box.read_file("/etc/sysconfig/network"), "HOSTNAME=nas.lan\n");
    EXPECT_EQ(box.call_net("host_name"), "nas 1");
    EXPECT_EQ(box.call_net("host_name_set " + std::string(80, 'x')), "-1"); // the kernel refuses
    EXPECT_EQ(box.read_file("/etc/hosts"), "127.0.0.1\tlocalhost\n10.1.2.3\tnas.lan\n");
    for (const std::string &name : box.list("/etc"))
        EXPECT_FALSE(name.starts_with("hosts.")) << name;
}

TEST(NetNames, DnsAndGateway)
{
    NetBox box;
    EXPECT_EQ(box.call_net("dns"), " 0");
    for (const auto &[text, result] : {std::pair("10.0.0.53", "0"), {"fe80::1", "0"}, {"10.0.0", "-1"}, {"''", "-1"}})
        EXPECT_EQ(box.call_net(std::string("dns_set ") + text), result);
    EXPECT_EQ(box.read_file("/etc/resolv.conf"), "nameserver\tfe80::1\n");
    EXPECT_EQ(box.call_net("dns"), "fe80::1 0");
    box.call({.call = "rename", .error = EIO});
    for (const char *text : {"10.0.0.1", "10.0.0.256"}) {
        box.file("/etc/resolv.conf.static.tmp", "from an earlier run\n");
        EXPECT_EQ(box.call_net(std::string("dns_set ") + text), "-1");
        EXPECT_FALSE(box.exists("/etc/resolv.conf.static.tmp"));
    }
    EXPECT_EQ(box.record().count("log err * FALSE != checkDNSIp(szDNS)"), 3);

    EXPECT_EQ(box.call_net("gateway"), " 0");
    box.program(
        "/sbin/route",
        {{.args = "delete default", .exit_status = 1}, {.args = "add default gw 10.0.0.9", .exit_status = 7}, {}});
    EXPECT_EQ(box.call_net("gateway_set ''"), "0");
    EXPECT_EQ(box.call_net("gateway_set 10.0.0.1"), "0");
    EXPECT_EQ(box.call_net("gateway_set 10.0.0.9"), "-1");
    EXPECT_TRUE(box.record().in_order({"run /sbin/route delete default", "run /sbin/route delete default",
                                       "run /sbin/route add default gw 10.0.0.1", "run /sbin/route delete default",
                                       "log err * failed to set default gateway 10.0.0.9 (1792)."}));
}

TEST(NetRoutes, CleanTakesTheRoutesOfPortsWithoutALink)
{
    NetBox box;
    const std::string kStatic = "BOOTPROTO=static\nIPADDR=0x0a.1.2.3\nNETMASK=255.255.0.0\n";
    box.port("eth0", false);
    box.file(kConfig + "eth0", kStatic);
    EXPECT_EQ(box.call_net("routes_clean"), "0");
    EXPECT_EQ(box.record().count("run /sbin/route *"), 0); // a single port keeps its route
    box.port("eth1");
    EXPECT_EQ(box.call_net("routes_clean"), "0");
    EXPECT_EQ(box.calls("/sbin/route").size(), 1U);
    EXPECT_EQ(box.record().count("run /sbin/route del -net 10.1.0.0 netmask 255.255.0.0 dev eth0"), 1);
    box.file(kConfig + "eth0", "BOOTPROTO=static\nIPADDR=10.1.2.3\n");
    EXPECT_EQ(box.call_net("routes_clean"), "-1");
    EXPECT_TRUE(box.record().in_order({"log err * Get netmask from *ifcfg-eth0 fail",
                                       "log err * NORVJNetRoutetableHandler clear [eth0] route table fail"}));
}

TEST(NetBoard, CountAndFirstAddress)
{
    NetBox box;
    EXPECT_EQ(box.call_net("lan_count"), "-1");
    EXPECT_EQ(box.call_net("mac"), "00 00 00 00 00 00 -1");
    const struct {
        const char *kernel, *defaults, *count;
    } kCases[] = {
        {"4\n", "maxlanport=2\n", "4"}, {"0\n", "maxlanport=2\n", "2"}, {"x", "maxlanport=0\n", "1"}, {"-1", "", "1"}};
    for (const auto &row : kCases) {
        box.file("/proc/sys/kernel/norv_internal_netif_num", row.kernel);
        box.file(kDefaults, row.defaults);
        EXPECT_EQ(box.call_net("lan_count"), row.count) << row.kernel;
    }
    box.file("/proc/sys/kernel/norv_mac_address1", "00113201fEa9\n");
    EXPECT_EQ(box.call_net("mac"), "00 11 32 01 fe a9 0");
    box.file("/proc/sys/kernel/norv_mac_address1", "00113201fe\n");
    EXPECT_EQ(box.call_net("mac"), "00 00 00 00 00 00 -1");
}

TEST(NetLan, NeighbourAnswersAndTheForeignAddressDoesNot)
{
    const struct {
        int answers, foreign_answers; // exit statuses of arping
        const char *result;
    } kCases[] = {{0, 1, "0"}, {0, 0, "-1"}, {1, 0, "-1"}};
    for (const auto &row : kCases) {
        NetBox box;
        EXPECT_EQ(box.call_net("is_in_lan 10.0.0.9 1"), "-1"); // no port
        box.port("eth0", false);
        box.port("eth1");
        box.program("/usr/sbin/arping", {{.args = "-I eth1 -c 2 10.0.0.9", .exit_status = row.answers},
                                         {.args = "-I eth1 -c 2 8.8.8.8", .exit_status = row.foreign_answers}});
        EXPECT_EQ(box.call_net("is_in_lan 10.0.0.9 2"), row.result);
        EXPECT_EQ(box.calls("/usr/sbin/arping").size(), 2U);
        EXPECT_EQ(box.unexpected_calls(), "");
    }
}

TEST(StartTelnet, StartsTheServerForANeighbourOnly)
{
    const std::string kHeader =
        "Expires: Mon, 26 Jul 1990 05:00:00 GMT\r\nCache-Control: no-store, no-cache, "
        "must-revalidate\r\nPragma: no-cache\r\nContent-type: text/html; charset=\"UTF-8\"\r\n\r\n";
    constexpr char kSet[] = "settimeofday 946684800.000000", kInetd[] = "run /usr/sbin/inetd";
    const struct {
        const char *zone; // NULL: a request without an address
        int arping, inetd, clock_error;
        bool runs;
        std::string record, last; // its end
        bool is_success;
    } kCases[] = {
        {"TZ=UTC", 0, 0, 0, false, std::string(kSet) + "\nrun /bin/sh -c /usr/sbin/inetd", kInetd, true},
        {"TZ=UTC-1", 0, 0, EPERM, true, "settimeofday 946681200.000000 = EPERM",
         "log err *(SetTime) failed to settimeofday [errno = Operation not *", true},
        {"TZ=UTC", 0, 0, 0, true, "", kSet, true},
        {"TZ=UTC", 0, 1, 0, false, kInetd, "log err * FHOSTinetdStart fail", false},
        {"TZ=UTC", 1, 0, 0, false, "", "run /usr/sbin/arping -I eth0 -c 1 *", false},
        {nullptr, 0, 0, 0, false, "log err * The remote addr is orz", "log err * The remote addr is NULL", false},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.last);
        NetBox box;
        box.port("eth0");
        box.program("/usr/sbin/arping", {{.args = "* 8.8.8.8", .exit_status = 1}, {.exit_status = row.arping}});
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
        {"wlan is no port", "1", "", "wlan0=01.0/01:00.0 eth1=02.0/02:00.0 ", "wlan0 eth0 "},
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
            EXPECT_TRUE(result.record.in_order({"delete_module ixgbe *", kGpioLow, "usleep 500000", kGpioHigh,
                                                "sleep 1", "finit_module *ixgbe.ko 'allow_unsupported_sfp=1 x=2'*"}))
                << result.record.text();
        }
    }
    NetBox box;
    EXPECT_EQ(box.run({"norvlanstatus"}).exit_status, 255);
    box.file("/etc.defaults/modules.conf", "module_ixgbe_args_broadwell=x\n");
    box.file("/lib/modules/ixgbe.ko", "");
    box.file("/sys/class/net/eth0/device/vendor", "");
    box.directory("/sys/class/net/eth1/device");
    box.board_remove();
    EXPECT_EQ(box.run({"norvlanstatus"}).exit_status, 0);
    EXPECT_TRUE(box.record().in_order(
        {"log err * Failed to get key module_ixgbe_args_broadwell from /etc.defaults/modules.conf",
         "log err * Failed get PCIe device", "log err * Failed to open /sys/class/net/eth1/device/vendor",
         "log err * Fail to open norvbios."}));
}

} // namespace

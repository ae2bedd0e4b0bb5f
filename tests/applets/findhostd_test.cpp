// The discovery daemon on wires of its own: what goes in by UDP, and the frames that come out.
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/support/box_links.h"
#include "tests/support/box_station.h"
#include "tests/support/rows.h"

namespace
{

using namespace std::string_literals;

constexpr char kSealedMagic[] = "\x12\x34\x55\x66NORV";
constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf";

std::string mac_text(int wire)
{
    return "02:00:00:00:00:a" + std::to_string(wire);
}

// One frame of a reply.
struct Frame {
    int wire; // that it went out on
    int port;
    std::string source_ip; // four bytes
    std::string payload;
    std::map<int, std::string> elements{}; // of a plain payload

    [[nodiscard]] uint32_t value(int tag) const
    {
        uint32_t number = 0xffffffff;
        const auto found = elements.find(tag);
        if (found != elements.end() && found->second.size() == 4)
            memcpy(&number, found->second.data(), 4);
        return number;
    }
};

std::map<int, std::string> elements_of(const std::string &packet)
{
    std::map<int, std::string> elements;
    for (size_t at = 8; at + 2 <= packet.size(); at += 2U + bytes_of(packet)[at + 1])
        elements[bytes_of(packet)[at]] = packet.substr(at + 2, bytes_of(packet)[at + 1]);
    return elements;
}

// A machine with wires eth0 to eth2. The client is on the loopback interface, the frames are seen on the wires' other
// ends, whose names no interface list takes up. The third wire has no link.
struct Lan : Sandbox {
    BoxLinks links{*this};
    std::vector<BoxStation> ends{};
    int next_client = 2; // 127.0.0.N: one client each, so that no repeat limit strikes

    explicit Lan(int wires = 3)
    {
        const UniqueFd control(socket(AF_INET, SOCK_DGRAM));
        EXPECT_TRUE(links.set("lo", true));
        for (int wire = 0; wire < wires; wire++) {
            const std::string name = "eth" + std::to_string(wire), end = "tap" + std::to_string(wire);
            EXPECT_TRUE(links.wire(name, end)) << strerror(errno);
            ifreq request = {};
            name.copy(request.ifr_name, IFNAMSIZ - 1);
            request.ifr_hwaddr.sa_family = 1; // Ethernet
            memcpy(request.ifr_hwaddr.sa_data, mac(wire).data(), 6);
            EXPECT_EQ(ioctl(control.get(), SIOCSIFHWADDR, &request), 0);
            EXPECT_TRUE(links.set(name, true) && (wire == 2 || links.set(end, true)));
            EXPECT_TRUE(links.settle(name, wire != 2));
            file("/etc/sysconfig/network-scripts/ifcfg-" + name,
                 "BOOTPROTO=static\nIPADDR=10.0.0.4\nNETMASK=255.255.255.0\n");
            if (wire != 2)
                ends.emplace_back(*this, end);
        }
        programs("/bin/ping");
        leaves({"/tmp/fhost.status*", "/tmp/install.lock"}); // it may just be replacing the first
    }

    static std::string mac(int wire) { return {2, 0, 0, 0, 0, static_cast<char>(0xa0 + wire)}; }
    void programs(const char *paths)
    {
        for (const std::string &path : words(paths))
            program(path);
    }

    // The daemon in debug mode, its sockets open.
    Process launch(std::vector<std::string> options = {})
    {
        options.insert(options.begin(), {"findhostd", "-d"});
        const int before = record().count("select 5.*");
        Process daemon = start(options, {.seconds = 60});
        for (int tries = 0; tries < 2000 && record().count("select 5.*") == before; tries++)
            usleep(10000);
        return daemon;
    }

    void send(const std::string &datagram, int port = 9999, int client = 0)
    {
        const UniqueFd fd(socket(AF_INET, SOCK_DGRAM));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(0x7f000000U + static_cast<unsigned>(client != 0 ? client : next_client++));
        ASSERT_EQ(bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        ASSERT_EQ(sendto(fd.get(), datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&address),
                         sizeof(address)),
                  static_cast<ssize_t>(datagram.size()));
    }

    // The next `count` frames of replies on all wires, in order of the wires, each right to its last byte.
    std::vector<Frame> frames(size_t count)
    {
        std::vector<Frame> all;
        for (int tries = 0; all.size() < count && tries < 20000; tries++)
            for (int wire = 0; wire < static_cast<int>(ends.size()); wire++) {
                const std::string bytes = ends[static_cast<size_t>(wire)].receive(0.001);
                if (bytes.empty())
                    continue;
                EXPECT_GE(bytes.size(), 42U);
                const auto port = static_cast<uint16_t>(bytes_of(bytes)[36] << 8 | bytes_of(bytes)[37]);
                const UdpFrame frame{.source_mac = mac(wire),
                                     .source_ip = bytes.substr(26, 4),
                                     .source_port = 1234,
                                     .destination_port = port,
                                     .payload = bytes.substr(42)};
                EXPECT_EQ(testing::PrintToString(bytes), testing::PrintToString(frame.bytes()));
                all.push_back({wire, port, frame.source_ip, frame.payload, elements_of(frame.payload)});
            }
        EXPECT_EQ(all.size(), count) << record().text();
        all.resize(count);
        std::stable_sort(all.begin(), all.end(), [](const Frame &a, const Frame &b) { return a.wire < b.wire; });
        return all;
    }

    // Asks for one interface, as a client nobody has seen, and takes the reply: whatever was to be sent before has been
    // sent by then.
    void expect_silence()
    {
        const std::string marker = "02:ee:00:00:00:" + std::to_string(next_client);
        send(plain(base(1) + element(0x19, mac_text(0)) + element(0x7c, marker)));
        for (const Frame &frame : frames(2))
            EXPECT_EQ(frame.elements.at(0x7c), marker);
    }

    int stop(Process *daemon, int number = SIGTERM)
    {
        daemon->signal(number);
        return daemon->wait().exit_status;
    }
};

TEST(Findhostd, AnswersAQueryFromEachPortWithTheWholeReplyTwice)
{
    Lan box;
    box.file("/etc.defaults/VERSION", "productversion=\"7.2.1\"\nbuildnumber=25556\nsmallfixnumber=3\n");
    box.file(kDefaults,
             "supportraid=yes\nupnpmodelname=NS0801\nunique=norv_one\nos_name=NOS7\nsupport_webinstall=yes\n");
    box.file("/proc/sys/kernel/norv_serial", "1234567890123\n");
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth1", "BOOTPROTO=static\n"); // settings that cannot be read
    box.file("/etc/resolv.conf", "search lan\n#nameserver 10.0.0.7\nnameserver\t 10.0.0.2 x\nnameserver 10.0.0.3\n");
    box.file("/proc/net/route", "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
                                "eth0\t0000000A\t00000000\t0001\t0\t0\t0\t000000FF\t0\t0\t0\n" // a subnet
                                "eth0\t00000000\t0500000A\t0002\t0\t0\t0\t00000000\t0\t0\t0\n" // down
                                "eth1\t00000000\t0600000A\t0003\t0\t0\t0\t00000080\t0\t0\t0\n" // half of all
                                "eth0\t00000000\t0100000A\t0003\t0\t0\t0\t00000000\t0\t0\t0\n");
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth0",
             "BOOTPROTO=static\nIPADDR=192.0.2.4\nNETMASK=255.255.255.0\n");
    box_address_set(box, "eth0", "192.0.2.4");
    box.program("/bin/ping", {{.args = "-c 2 -w 2 127.0.0.3", .exit_status = 1}, {}});
    box.program("/etc/norvgrinst.sh");
    Process daemon = box.launch();
    for (const int port : {9999, 9998, 9997}) {
        const int client = box.next_client;
        box.send(plain(base(1)), port);
        const std::vector<Frame> frames = box.frames(4);
        for (size_t i = 0; i < 4; i++) {
            const bool is_first = i < 2;
            EXPECT_EQ(frames[i].wire, is_first ? 0 : 1);
            EXPECT_EQ(frames[i].port, port);
            EXPECT_EQ(frames[i].source_ip, is_first ? "\xc0\0\2\4"s : "\x01\x01\x01\x01");
            std::string expected = element(0x19, mac_text(is_first ? 0 : 1)) + number(0x12, is_first ? 0x040200c0 : 0) +
                                   number(0x10, 0) + number(0x13, is_first ? 0x00ffffff : 0) + number(0xba, 1) +
                                   number(0x18, client == 3 ? 0 : 1) +
                                   number(0x1e, 0x7fU | static_cast<unsigned>(client) << 24) + number(0x1f, 0);
            if (is_first)
                expected += number(0x15, 0x0200000a) + number(0x14, 0x0100000a);
            expected += number(0xa3, is_first ? 0 : 1) + number(0x01, 6) + number(0xa4, 0x01020000) +
                        number(0xa6, 0x78) + number(0x48, 1) + element(0x78, "NS0801") + element(0x70, "norv_one") +
                        element(0xc1, "NOS7") + number(0x71, 1) + number(0xa7, 2) + number(0xb0, 0, 8) +
                        number(0xb8, 0, 8) + number(0x90, 3) + number(0x49, 25556) + element(0x77, "7.2.1") +
                        element(0xc0, "1234567890123") + element(0x73, "4567890123");
            const std::string host = element(0x11, frames[i].elements.at(0x11)); // the box's own name
            EXPECT_EQ(frames[i].payload, plain(host + expected));
        }
    }
    EXPECT_EQ(box.read_file("/tmp/fhost.status"), "2");
    EXPECT_EQ(box.read_file("/var/run/findhostd.pid"), std::to_string(daemon.pid()));
    box.send(plain(base(11)));
    EXPECT_TRUE(box.wait_for("run /etc/norvgrinst.sh"));
    EXPECT_EQ(box.stop(&daemon), 0);
    EXPECT_TRUE(box.record().in_order(
        {"run /bin/ping -c 2 -w 2 127.0.0.2", "usleep 10", "log err I got GRINST pkt!", "run /etc/norvgrinst.sh"}));
}

TEST(Findhostd, RepliesWhereTheQuerySays)
{
    Lan box;
    Process daemon = box.launch();
    const std::pair<std::string, std::vector<int>> kCases[] = {
        {element(0x29, "02:00:00:00:00:A0"), {0, 0}},
        {element(0x19, mac_text(0)) + element(0x29, mac_text(1)), {1, 1}},
        {element(0x19, "02:00:00:00:00:77"), {0, 0, 1, 1}}, // nobody's
        {element(0x19, "02:00:00:00:00:a"), {0, 0, 1, 1}},
        {element(0x29, ""), {0, 0, 1, 1}},
    };
    for (const auto &[elements, wires] : kCases) {
        box.send(plain(base(1) + elements));
        const std::vector<Frame> frames = box.frames(wires.size());
        for (size_t i = 0; i < frames.size(); i++)
            EXPECT_EQ(frames[i].wire, wires[i]) << testing::PrintToString(elements);
        box.expect_silence(); // and not more
    }
    EXPECT_EQ(box.stop(&daemon), 0);
}

TEST(Findhostd, DropsInSilenceWhatIsNoRequest)
{
    Lan box(1);
    const std::string query = base(1);
    const std::pair<std::string, const char *> kCases[] = {
        // and what is said
        {"", "Unknown packet format -1\n"},
        {plain(""), "Unknown packet format -1\n"},
        {plain("\0\0"s), "v1 packet, dropped\n"},
        {plain("\0"s), ""},
        {plain("\0\0\0"s), ""},
        {"\x12\x34\x56\x78NORW" + query, ""},
        {plain(number(0x01, 1)), "Basic is not satifsfied\n"},
        {plain(number(0x01, 1) + number(0xa4, 0xfe000000)), ""}, // the stamp's last byte has bit 0 clear
        {plain(base(77)), ""},
        {kSealedMagic + std::string(100, 'x'), ""},
        {std::string(2000, 'x'), ""},
        {plain(query + std::string(1100, '\x99')), ""}, // cut at 1024 bytes, in the middle of an element
    };
    Process daemon = box.launch();
    std::string said = daemon.err(); // the start has its own words
    for (const auto &[datagram, word] : kCases) {
        box.send(datagram);
        said += word;
    }
    box.expect_silence();
    EXPECT_EQ(daemon.err(), said);
    // A query goes through with the one bit of its stamp.
    box.send(plain(number(0x01, 1) + number(0xa4, 0x01000000)));
    EXPECT_EQ(box.frames(2)[0].value(0x01), 6U);
    EXPECT_EQ(box.stop(&daemon), 0);
}

const CallRow kLockTaken = {.call = "flock", .args = "*install.lock 0x6", .error = EWOULDBLOCK, .times = 1};

TEST(Findhostd, SetsTheNetworkAndTellsHowItWent)
{
    const std::string address = number(0x20, 0) + number(0x22, 0x0500000a) + number(0x23, 0x00ffffff),
                      gateway = number(0x24, 0x0100000a), nameless = element(0x21, ""), named = element(0x21, "nas"),
                      ifconfig = "run /sbin/ifconfig eth0 10.0.0.5 netmask 255.255.255.0 broadcast 10.0.0.255",
                      lines_of_both = "ip=10.0.0.5\nmask=255.255.255.0\n";
    const auto fails = [](const char *path) { return program(path, {.exit_status = 1}); };
    constexpr char kStatic[] = "BOOTPROTO=static\nIPADDR=10.0.0.4\nNETMASK=255.255.255.0\n",
                   kSet[] = "IPADDR=10.0.0.5\nNETMASK=255.255.255.0\nBOOTPROTO=static\nONBOOT=yes\n",
                   kLeased[] = "BOOTPROTO=dhcp\nONBOOT=yes\n",
                   kSettings[] = "/etc/sysconfig/network-scripts/ifcfg-eth0";
    const struct {
        const char *what;
        std::string elements; // beside type, stamp and the MAC
        uint32_t code;        // of the replies: two frames, when it is a success another two
        const char *settings; // of the interface
        std::string record;
        std::string lines = ""; // of /.tmpcfg; empty: no such file
        const char *log = "";   // or what is said
        Change change = {};
        const char *mac = "02:00:00:00:00:a0";
    } kCases[] = {
        {"address, gateway, name server and host name", address + named + gateway + number(0x25, 0x0200000a), 0, kSet,
         "fsync *ifcfg-eth0.*\nkill 2147483646 9 *\n" + ifconfig +
             "\nrun /sbin/route delete default\nrun /sbin/route add default gw 10.0.0.1\nfsync */etc/hosts.tmp*\n"
             "sethostname nas*\nrename /etc/hosts.tmp* /etc/hosts\nusleep 300",
         lines_of_both + "gateway=10.0.0.1\ndns=10.0.0.2\n", "",
         call({.call = "fsync", .real = true}) + call({.call = "rename", .real = true})},
        {"gateway that is refused is not told", address + nameless + gateway, 0, kSet, ifconfig,
         lines_of_both + "gateway=10.0.0.1\n", "* failed to set default gateway 10.0.0.1 (256).", fails("/sbin/route")},
        {"address that is refused", address + named, 5, kStatic, ifconfig, "", "Failed to set network manually! (0x*",
         fails("/sbin/ifconfig")},
        {"address without a place in the hosts' file", address + named, 5, kStatic, ifconfig, "",
         "Failed to set network manually! (0x*", call({.call = "sethostname", .error = EPERM})},
        {"address that nobody may have",
         number(0x20, 0) + number(0x22, 0xff00000a) + number(0x23, 0x00ffffff) + nameless, 5, kStatic, "", "",
         "Failed to set network manually! (0x*"},
        {"no mask", number(0x20, 0) + number(0x22, 0x0500000a) + named, 5, kStatic, "", "",
         "ErrQCFSetManual(*): Bad parameters(ulIP=83886090, ulMask=0)"},
        {"host name that cannot be set comes after the address", address + named, 5, kSet, ifconfig, lines_of_both,
         "Failed to set host name! (0x*", call({.call = "sethostname", .args = "nas*", .error = EPERM})},
        {"DHCP, and the address is of no meaning", number(0x20, 1) + number(0x22, 0x0500000a) + nameless, 0, kLeased,
         "run /usr/bin/killall udhcpc\nrun /sbin/ifconfig eth0 0.0.0.0\n"
         "run /sbin/udhcpc -i eth0 -p /etc/dhcpc/dhcpcd-eth0.pid -b\nsleep 30"},
        {"DHCP where there is no client", number(0x20, 1) + nameless, 5, kStatic, "", "", "Failed to set DHCP! (0x*",
         fails("/sbin/udhcpc")},
        {"DHCP where it is in use already", number(0x20, 1) + nameless, 0, "BOOTPROTO=dhcp\n",
         "flock /tmp/install.lock 0x6\nusleep 300\nflock /tmp/install.lock 0x8", "", "",
         file(kSettings, "BOOTPROTO=dhcp\n") +
             file("/etc/dhcpc/dhcpcd-eth0.info", "IPADDR=10.0.0.4\nNETMASK=255.255.255.0\n") +
             call({.call = "flock", .real = true}) + fails("/sbin/udhcpc")},
        {"nobody's MAC", address + named, 5, kStatic, "", "", "", kNoChange, "02:00:00:00:00:99"},
        {"lock that cannot be made", address + nameless, 7, kStatic, "", "",
         "create lock file fail in PKT_ID_PTYPE_NETSETTING\n", directory("/tmp/install.lock")},
        {"lock that somebody has", address + nameless, 7, kStatic, "", "",
         "Get file lock fail in PKT_ID_PTYPE_NETSETTING\n", call(kLockTaken)},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.what);
        Lan box(1);
        box.compress_sleeps();
        box.file("/etc/sysconfig/network", "HOSTNAME=old\n");
        box.file("/etc/hosts", "old\n");
        box.file("/etc/resolv.conf.bak", "");
        box.program("/bin/grep",
                    {{.args = "'/sbin/udhcpc -i eth0'", .output = "  2147483646 x /sbin/udhcpc -i eth0\n"}});
        box.call({.call = "kill", .error = ESRCH});
        box.leaves({"*"});
        row.change(box);
        box.programs("/bin/ps /sbin/ifconfig /sbin/route /sbin/udhcpc /usr/bin/killall");
        Process daemon = box.launch();
        box.send(plain(base(3) + row.elements + element(0x29, row.mac)));
        for (const Frame &frame : box.frames(row.code == 0 ? 4 : 2)) {
            EXPECT_EQ(frame.value(0x1f), row.code);
            EXPECT_TRUE(row.code == 7 || frame.value(0xa7) == 3); // the daemon's own lock says that an install runs
        }
        box.expect_silence();
        EXPECT_TRUE(box.record().in_order(lines(row.record)));
        EXPECT_TRUE(!row.record.empty() || box.record().count(ifconfig) == 0);
        EXPECT_EQ(text_of(box, "/.tmpcfg"), row.lines);
        EXPECT_EQ(box.read_file(kSettings), row.settings);
        EXPECT_EQ(box.list("/etc/sysconfig/network-scripts").size(), 1U); // no backup stays
        const bool is_set = row.settings == kSet;
        EXPECT_EQ(box.exists("/etc/resolv.conf.bak"), !is_set);
        EXPECT_EQ(box.read_file("/etc/hosts").substr(0, 29), is_set ? "127.0.0.1\tlocalhost\n10.0.0.5\t" : "old\n");
        for (const std::string &name : box.list("/etc"))
            EXPECT_FALSE(name.starts_with("hosts.")) << name;
        EXPECT_TRUE(box.record().count(std::string("log err ") + row.log) == 1 ||
                    daemon.err().find(row.log) != std::string::npos)
            << box.record().text("log *") << daemon.err();
        EXPECT_EQ(box.stop(&daemon), 0);
    }
}

TEST(Findhostd, OpensTheMaintenanceShellForAnEmptyConfiguration)
{
    const std::string mac = element(0x29, mac_text(0));
    const struct {
        std::string elements;
        int starts;
        uint32_t code = 5;
        Change change = {};
    } kCases[] = {
        {mac + number(0x13, 1), 1}, // the mask is not looked at
        {mac + element(0x11, "nas"), 0}, {mac + number(0x12, 1), 0}, {element(0x19, "02:00:00:00:00:99"), 0},
        {mac, 0, 7, call(kLockTaken)},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(testing::PrintToString(row.elements));
        Lan box(1);
        box.leaves({"*"});
        box.program("/usr/sbin/inetd");
        row.change(box);
        Process daemon = box.launch();
        box.send(plain(base(4) + row.elements));
        for (const Frame &frame : box.frames(2)) {
            EXPECT_EQ(frame.value(0x1f), row.code);
            EXPECT_EQ(frame.value(0xa3), 0U);
        }
        box.expect_silence();
        EXPECT_EQ(box.record().count("settimeofday 946684800*"), row.starts);
        EXPECT_EQ(box.record().count("run /usr/sbin/inetd"), row.starts);
        EXPECT_EQ(daemon.err().find("Get file lock fail in PKT_ID_PTYPE_QUICKCONF\n") != std::string::npos,
                  row.code == 7);
        EXPECT_FALSE(box.exists("/.tmpcfg"));
        EXPECT_EQ(box.stop(&daemon), 0);
    }
}

// Each running port says once that it is ready, and once what it is, under its own MAC and with no address.
TEST(Findhostd, MemoryTestAnswersQueriesAloneAndTellsOfItself)
{
    Lan box;
    box.file("/.memtest", "");
    box.file("/tmp/memtester.progress", "1/3\n");
    box.program("/etc/norvgrinst.sh");
    box.leaves({"process findhostd"});
    Process daemon = box.launch();
    const std::vector<Frame> first = box.frames(8); // each twice
    for (int wire = 0; wire < 2; wire++) {
        const Frame &ready = first[static_cast<size_t>(wire) * 4], &reply = first[static_cast<size_t>(wire) * 4 + 2];
        EXPECT_EQ(ready.payload,
                  plain(element(0x19, mac_text(wire)) + number(0x12, 0) + number(0x01, 18) + number(0xa4, 0x01020000)));
        EXPECT_EQ(reply.wire, wire);
        EXPECT_EQ(reply.source_ip, "\x01\x01\x01\x01");
        EXPECT_EQ(reply.elements.at(0x19), mac_text(wire));
        EXPECT_EQ(reply.value(0x01), 6U);
        EXPECT_EQ(reply.value(0xa7), 9U);
        EXPECT_EQ(reply.value(0x79), 2500U);
        EXPECT_FALSE(reply.elements.contains(0x1f));
    }
    ASSERT_TRUE(box.wait_for("sleep 10"));
    for (const auto &[pid, name] : box.processes())
        if (name == "findhostd")
            box.signal(pid, SIGKILL);
    box.send(plain(base(11)));
    box.send(plain(base(1) + element(0x7c, "me")));
    Frame answer = {};
    for (int tries = 0; tries < 20 && answer.elements[0x7c] != "me"; tries++)
        answer = box.frames(1)[0]; // the first ones may be what the notifier had sent before
    EXPECT_EQ(answer.value(0xa7), 9U);
    EXPECT_EQ(box.stop(&daemon), 0);
    EXPECT_EQ(box.record().count("run /etc/norvgrinst.sh"), 0);
}

TEST(Findhostd, SignalsAreReported)
{
    Lan box(1);
    const auto reported = [&](int number) {
        return box.wait_for("log err exit.cpp:*(FHOSTDExit) exit on signal[" + std::to_string(number) + "]*");
    };
    Process daemon = box.launch();
    daemon.signal(SIGHUP);
    ASSERT_TRUE(reported(SIGHUP));
    box.expect_silence(); // it goes on
    EXPECT_TRUE(box.exists("/var/run/findhostd.pid"));
    EXPECT_EQ(box.stop(&daemon), 0);
    EXPECT_TRUE(reported(SIGTERM));
    EXPECT_FALSE(box.exists("/var/run/findhostd.pid"));
    EXPECT_NE(daemon.err().find("(FHOSTDExit) exit on signal[1]\n"), std::string::npos);
    EXPECT_NE(daemon.err().find("(FHOSTDExit) exit on signal[15]\n"), std::string::npos);
}

// The stop comes when it has not yet begun to sleep.
TEST(Findhostd, EndsWithoutWaitingForALease)
{
    Lan box(1);
    box.leaves({"*"});
    const auto stop = [&](const ProgramCall &) {
        box.signal(std::stoi(box.read_file("/var/run/findhostd.pid")), SIGTERM);
    };
    box.program("/sbin/udhcpc", {{.effect = stop}});
    box.programs("/usr/bin/killall /sbin/ifconfig");
    Process daemon = box.launch();
    box.send(plain(base(3) + number(0x20, 1) + element(0x21, "") + element(0x29, mac_text(0))));
    ASSERT_TRUE(box.wait_for("sleep 30"));
    const time_t before = time(nullptr);
    EXPECT_EQ(daemon.wait().exit_status, 0);
    EXPECT_LT(time(nullptr), before + 25);
}

TEST(Findhostd, EndsWithoutASocket)
{
    const std::string stars(54, '*');
    Lan box(1);
    box.leaves({"/var/run/findhostd.pid*"});
    const Result wrong = box.run({"findhostd", "-c", "-x"});
    EXPECT_EQ(wrong.exit_status, 0);
    EXPECT_NE(wrong.err.find("Findhostd Ver. 258.0\n"), std::string::npos);
    EXPECT_EQ(wrong.out, "");
    box.call({.call = "bind", .error = EADDRINUSE, .skip = 1, .times = 1});
    const Result ended = box.run({"findhostd", "-d"});
    EXPECT_EQ(ended.exit_status, 0);
    EXPECT_EQ(ended.out, "debug on\n" + stars + "\nrun udp serv\n" + stars + "\nQCF status = 2\n" + stars +
                             "\nend udp serv\n" + stars + "\n");
    EXPECT_NE(ended.err.find(": bind error\n"), std::string::npos);
}

} // namespace

// The discovery client against the real daemon, on a wire of their own.
#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "autocleanup/unique.h"
#include "build_paths.h"
#include "tests/findhost/capture.h"
#include "tests/support/box_links.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kSettings[] = "/etc/sysconfig/network-scripts/ifcfg-eth0";

// An appliance at eth0, the client at the wire's other end, which the appliance does not list. Neither has an address.
struct Pair : Sandbox {
    BoxLinks links{*this};
    UniqueFd bystander; // hears all that either sends

    Pair()
    {
        EXPECT_TRUE(links.set("lo", true) && links.live_wire("eth0", "tap0"));
        host_file("/bin/norvfind", NORV_BINARY_DIR "/tools/norvfind/norvfind");
        host_file("/sbin/ifconfig", "/bin/busybox"); // replies tell the address that the interface has
        for (const char *path : {"/bin/ping", "/sbin/route", "/usr/bin/killall", "/sbin/udhcpc", "/bin/ps", "/bin/grep",
                                 "/usr/sbin/arping", "/bin/hostname"})
            program(path);
        file("/etc.defaults/VERSION", "productversion=\"7.2.1\"\nbuildnumber=25556\n");
        file("/etc.defaults/norvinfo.conf", "upnpmodelname=NS0801\nunique=norv_one_1\n");
        file(kSettings, "BOOTPROTO=static\nIPADDR=10.0.0.4\nNETMASK=255.0.0.0\n");
        host_program("/usr/bin/flock");
        file("/etc/hosts", "127.0.0.1 localhost\n");
        leaves({"/tmp/*", "/etc/*", "/.tmpcfg", "/var/run/findhostd.pid"});
        bystander = UniqueFd(socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL)));
        sockaddr_ll address = {};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = links.index("eth0");
        EXPECT_EQ(bind(bystander.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    }

    Process daemon(const std::string &options = "")
    {
        Process process = start(words("-d " + options, "findhostd"), {.seconds = 120});
        for (int tries = 0; tries < 2000 && record().count("select 5.*") == 0; tries++)
            usleep(10000);
        return process;
    }

    Result find(const std::string &command)
    {
        return run(words(command + " --interface tap0", "/bin/norvfind"), {.seconds = 60});
    }

    // The client until it succeeds: on a busy machine an answer may come after its time. The daemon serves one address
    // again after a pause.
    Result find_at_last(const std::string &command)
    {
        Result result = find(command);
        for (int tries = 0; tries < 10 && result.exit_status != 0; tries++) {
            sleep(2);
            result = find(command);
        }
        sleep(2);
        return result;
    }

    // The appliance's MAC, as a scan tells it.
    std::string mac()
    {
        const std::string out = find_at_last("scan --json --seconds 1").out;
        const size_t at = out.find("\"mac\":\"");
        return at != out.npos ? out.substr(at + 7, 17) : "none";
    }

    // What the bystander heard since the last call.
    std::vector<std::string> frames() const
    {
        std::vector<std::string> all;
        char bytes[2048];
        for (ssize_t got; (got = recv(bystander.get(), bytes, sizeof(bytes), MSG_DONTWAIT)) > 0;)
            all.emplace_back(bytes, static_cast<size_t>(got));
        return all;
    }
    bool heard(const std::string &text) const
    {
        return std::ranges::any_of(frames(), [&](const auto &frame) { return frame.find(text) != frame.npos; });
    }
};

void end(Process &daemon)
{
    daemon.signal(SIGTERM);
    daemon.wait();
}

TEST(Norvfind, ScansAndShowsWhatHasNoAddress)
{
    Pair box;
    EXPECT_EQ(box.find("scan --seconds 1").exit_status, 1);
    Process daemon = box.daemon();
    const Result table = box.find_at_last("scan --seconds 1");
    EXPECT_EQ(table.exit_status, 0) << table.err;
    for (const char *part : {"NS0801", "7.2.1-25556", "not installed", "yes"}) // sealed
        EXPECT_NE(table.out.find(part), std::string::npos) << part << table.out;
    EXPECT_FALSE(box.heard("norv_one_1")) << "the reply can be read on the way";
    const Result shown = box.find_at_last("show " + box.mac());
    EXPECT_EQ(shown.exit_status, 0) << shown.err;
    EXPECT_NE(shown.out.find("norv_one_1"), std::string::npos) << shown.out;
    EXPECT_EQ(box.find("show 02:00:00:00:00:99 --seconds 1").exit_status, 1);
    end(daemon);
}

TEST(Norvfind, SetsTheNetworkSealed)
{
    Pair box;
    Process daemon = box.daemon("-C"); // it takes nothing in the clear but queries
    const std::string mac = box.mac();
    sleep(2);
    const Result set =
        box.find("set " + mac + " --ip 10.9.8.7/24 --gateway 10.9.8.1 --dns 10.9.8.2 --hostname secretname");
    EXPECT_EQ(set.out, mac + ": done\n") << set.err << box.record().text();
    EXPECT_EQ(set.exit_status, 0);
    EXPECT_FALSE(box.heard("secretname"));
    EXPECT_NE(box.read_file(kSettings).find("10.9.8.7"), std::string::npos);
    EXPECT_EQ(box.find("set " + mac + " --dhcp --plain --seconds 1").exit_status, 1); // plain: not even found
    sleep(2);
    Process holder = lock_holder(box, "/tmp/install.lock");
    const Result locked = box.find("set " + mac + " --ip 10.9.8.8/24");
    EXPECT_EQ(locked.exit_status, 4) << locked.err;
    holder.close_input();
    holder.wait();
    end(daemon);
}

// The key that the client leaves opens what it was answered.
TEST(Norvfind, LeavesItsKeyForTheDissector)
{
    Pair box;
    Process daemon = box.daemon();
    EXPECT_EQ(box.find_at_last("scan --seconds 1 --key-file /tmp/keys").exit_status, 0);
    EXPECT_EQ(box.find("scan --key-file /none/keys").exit_status, 2);
    end(daemon);
    if (!Capture::can_be_shown())
        GTEST_SKIP() << "no tshark: what the bystander heard was not looked at";
    Capture capture;
    for (const std::string &frame : box.frames())
        capture.add_frame(frame);
    const std::string keys = box.read_file("/tmp/keys"), opened = "Sealed Reply|norv_one_1\n";
    const std::string shown = capture.shown(keys, {"_ws.col.Info", "norvfind.unique"});
    EXPECT_NE(shown.find("Query|\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find(opened), std::string::npos) << shown;
}

TEST(Norvfind, WrongUse)
{
    Pair box;
    const std::string set = "set 02:00:00:00:00:00";
    for (const std::string &command : {set, set + " --dhcp --ip 1.2.3.4/8", set + " --ip 1.2.3.4/33",
                                       set + " --ip 1.2.3/8", std::string("scan x")}) {
        const Result result = box.find(command);
        EXPECT_EQ(result.exit_status, 2) << command;
        EXPECT_NE(result.err.find("usage: norvfind"), std::string::npos);
    }
}

} // namespace

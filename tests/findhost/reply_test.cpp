// The packets that the appliance sends, element by element.
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <unistd.h>

#include "findhost/findhost.h"
#include "install/system_status.h"
#include "lib/text.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/support/private_root.h"

namespace
{

constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf", kVersion[] = "/etc.defaults/VERSION",
               kSerial[] = "/proc/sys/kernel/norv_serial";
constexpr uint32_t kPeer = 0x0700000a; // 10.0.0.7

std::string host_name()
{
    char name[65] = "";
    gethostname(name, sizeof(name));
    return std::string(name).substr(0, std::string(name).find('.')).substr(0, 31);
}

struct Case {
    const char *what;
    bool is_physical;
    std::map<std::string, std::string> files;
    std::function<void(FhostReply *, NET_IF_INFO *, FHOST_RECORD *)> change; // what differs from the common ground
    std::string elements;
    std::string log;
};

// What every reply with all files missing holds at these places.
const std::string kNoRelease = number(0x90, 0) + number(0x49, 0);
const std::string kNoVersionLog = "3 reply_facts.cpp:# Fail to get productversion from /etc.defaults/VERSION\n";
const std::string kMacs = "02:00:00:00:00:0a";
const std::string kIdentity = number(0x01, 6) + number(0xa4, 0x01020000);
const std::string kInterfaceIdentity = kIdentity + number(0xa6, 0x78) + number(0x48, 1);
constexpr char kStaticEth0[] = "BOOTPROTO=static\n", kIfcfgEth0[] = "/etc/sysconfig/network-scripts/ifcfg-eth0";

// How each interface's reply begins: the host's name, the port, its address and mask.
std::string interface_begin(uint32_t ip = 0x0400000a, uint32_t mask = 0x00ffffff, int dhcp = 0)
{
    return element(0x11, host_name()) + element(0x19, kMacs) + number(0x12, ip) +
           number(0x10, static_cast<uint64_t>(dhcp)) + number(0x13, mask);
}

std::string capabilities(uint64_t bits)
{
    return number(0xb0, bits, 8) + number(0xb8, bits, 8);
}

// On migration: what the disks hold.
const std::string kMigration = number(0xa7, 14) + element(0x7e, "9.8.765") + element(0x7f, "NS0999") +
                               number(0x7d, 30000) + number(0x4d, 5) + capabilities(0x40);

void migrates(FhostReply * /*reply*/, NET_IF_INFO * /*interface*/, FHOST_RECORD * /*request*/)
{
    gSysStatus = SYSTEM_NORMAL;
    ulSysMigratType = 5;
    gDiskSysInfo.build_num = 30000;
    EXPECT_TRUE(text_set(gDiskSysInfo.version, "9.8.7654"));
    EXPECT_TRUE(text_set(gDiskSysInfo.model, "NS0999"));
}

TEST(FhostReply, ElementsStandInOrder)
{
    const Case kCases[] = {
        {"nothing set, short form, no address",
         false,
         {{kIfcfgEth0, kStaticEth0}},
         [](FhostReply *reply, NET_IF_INFO *interface, FHOST_RECORD *request) {
             reply->long_form = false;
             reply->request = request; // its szPcMac is empty
             interface->szIP[0] = '\0';
         },
         interface_begin(0, 0) + number(0xa3, 1) + kInterfaceIdentity + element(0xc1, "NOS") + number(0x71, 0) +
             number(0xa7, 2) + capabilities(0) + kNoRelease,
         "3 reply_build.cpp:#(FHOSTSendViaVface) nic_ip.s_addr=0\n"
         "3 reply_build.cpp:#(FHOSTSendViaVface) nic_index=[1], PsIfaces[nic_index].szName=[eth0]\n" +
             kNoVersionLog},
        {"texts of the model that are too long, serials of another length",
         false,
         {{kDefaults, "upnpmodelname=" + std::string(48, 'm') + "\nunique=" + std::string(64, 'u') +
                          "\nos_name=LONGNAME\nsupportraid=no\n"},
          {kVersion, "productversion=7\nbuildnumber=1\n"},
          {kSerial, "123456789\n"},
          {kIfcfgEth0, kStaticEth0}},
         [](FhostReply *reply, NET_IF_INFO *, FHOST_RECORD *) {
             reply->long_form = false;
             gSysStatus = SYSTEM_CRASHED;
         },
         interface_begin() + number(0xa3, 1) + kInterfaceIdentity + element(0xc1, "NOS") + number(0x71, 0) +
             number(0xa7, 4) + capabilities(0) + number(0x90, 0) + number(0x49, 1) + element(0x77, "7") +
             element(0xc0, "123456789"),
         "3 reply_facts.cpp:# Serial number is 9 out of size\n"},
        {"disks with a newer system",
         false,
         {{kVersion, "productversion=7\nbuildnumber=29999\nsmallfixnumber=2\n"},
          {kSerial, "AB34567890123456"},
          {kIfcfgEth0, kStaticEth0}},
         [](FhostReply *reply, NET_IF_INFO *interface, FHOST_RECORD *request) {
             reply->long_form = false;
             migrates(reply, interface, request);
         },
         interface_begin() + number(0xa3, 1) + kInterfaceIdentity + element(0xc1, "NOS") + number(0x71, 0) +
             kMigration + number(0x90, 2) + number(0x49, 30000) + element(0x77, "9.8.765") +
             element(0xc0, "AB34567890123456") + element(0x73, "7890123456"),
         ""},
        {"physical, memory test",
         true,
         {{kVersion, "majorversion=7\nminorversion=2\nbuildnumber=25556\nsmallfixnumber=3\n"},
          {"/tmp/memtester.progress", "50/100\n"}},
         [](FhostReply *reply, NET_IF_INFO *, FHOST_RECORD *request) {
             EXPECT_TRUE(text_set(request->szPcMac, "aa:bb"));
             reply->request = request;
             gblMemTest = 1;
         },
         element(0x11, host_name()) + element(0x19, kMacs) + number(0x18, 0) + number(0x1e, kPeer) + number(0x1f, 5) +
             element(0xa2, "02:00:00:00:00:01") + number(0xa3, 1) + kIdentity + number(0xa7, 9) + number(0x79, 4950) +
             capabilities(0) + number(0x90, 3) + number(0x49, 25556) + element(0x77, "7.2") + element(0x7c, "aa:bb"),
         ""},
        {"physical, unprompted, disks with an older system",
         true,
         {{kVersion, "buildnumber=30000\n"}},
         [](FhostReply *reply, NET_IF_INFO *interface, FHOST_RECORD *request) {
             reply->code = 0;
             reply->peer_ip = 0;
             migrates(reply, interface, request);
         },
         element(0x11, host_name()) + element(0x19, kMacs) + number(0x18, 0) + number(0x1e, 0) +
             element(0xa2, "02:00:00:00:00:01") + number(0xa3, 1) + kIdentity + kMigration + number(0x90, 0) +
             number(0x49, 30000),
         "3 reply_facts.cpp:# Failed to get majorversion from /etc.defaults/VERSION\n"
         "3 reply_facts.cpp:# Failed to get minorversion from /etc.defaults/VERSION\n"},
    };
    for (const auto &row : kCases) {
        const PrivateRoot root;
        for (const auto &[path, text] : row.files)
            root.write(path, text);
        root.run([&row] {
            NET_IF_INFO table[2] = {};
            memcpy(table[0].mac, "\x02\0\0\0\0\x01", 6);
            memcpy(table[1].mac, "\x02\0\0\0\0\x0a", 6);
            text_cut(table[1].szName, "eth0");
            text_cut(table[1].szIP, "10.0.0.4");
            text_cut(table[1].szMask, "255.255.255.0");
            FHOST_RECORD request = {};
            FhostReply reply = {table, 1, kPeer, 1, kFhostRefused, true, nullptr};
            row.change(&reply, &table[1], &request);
            FhostPacket packet;
            (row.is_physical ? fhost_phyface_reply_build : fhost_vface_reply_build)(reply, &packet);
            EXPECT_EQ(std::string(packet.bytes, packet.bytes + packet.size), plain(row.elements)) << row.what;
        });
        const std::string log = root.log();
        EXPECT_NE(log.find(row.log), std::string::npos) << row.what << "\n" << log;
    }
}

TEST(FhostStatus, FirstConditionThatHoldsDecides)
{
    static constexpr struct {
        int mem_test, system, recoverable, migration;
        bool is_locked;
        int status;
    } kCases[] = {
        {1, 1, 1, 1, true, 9},   {0, 1, 1, 1, true, 3},  {0, 1, 1, 1, false, 11},
        {0, 1, 0, 1, false, 14}, {0, 1, 0, 0, false, 4}, {0, 2, 1, 1, false, 4},
        {0, 3, 1, 1, false, 2},  {0, 7, 1, 1, false, 2}, {0, 0, 0, 0, false, 2},
    };
    for (const auto &row : kCases) {
        const PrivateRoot root;
        if (row.is_locked)
            root.write("/tmp/install.lock/makes", "a folder, which cannot be opened for writing or locked\n");
        root.run([&row] {
            gblMemTest = row.mem_test;
            gSysStatus = row.system;
            gblSystemRecoverable = row.recoverable;
            gblAsstHasSySMigrat = row.migration;
            EXPECT_EQ(FHOSTGetStatus(), row.status);
        });
        EXPECT_EQ(root.read("/tmp/fhost.status"), std::to_string(row.status));
        EXPECT_EQ(root.log(), row.system == 7 || row.system == 0
                                  ? "3 get_status.cpp:# unknown system status: " + std::to_string(row.system) + "\n"
                                  : "");
    }
}

} // namespace

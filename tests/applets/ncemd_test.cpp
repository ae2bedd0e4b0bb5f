// The event daemon on the simulated board: start, each event, disks, links, stop.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/board/board.h"
#include "tests/support/box_links.h"
#include "tests/support/sandbox.h"
#include "tests/support/wire.h"

namespace
{

constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf";
constexpr char kOrangeBlinking[] = "board 0xc0904b01 control 0x5202 0x0 \"\"";
constexpr char kBeep[] = "board 0xc0904b01 control 0x5301 0x0 \"\"";

std::string control(const std::string &code)
{
    return "board 0xc0904b01 control " + code + " 0x0 \"\"";
}

// The daemon in a box where a round of two seconds takes some milliseconds.
struct DaemonBox : Sandbox {
    pid_t pid = -1;

    explicit DaemonBox(const std::string &defaults)
    {
        file(kDefaults, "supportraid=no\n" + defaults);
        compress_sleeps(500);
        leaves({"process ncemd", "/tmp/.not.dualhead"});
    }
    void launch()
    {
        const Result result = run({"ncemd"});
        EXPECT_EQ(result.exit_status, 0) << result.record.text();
        ASSERT_TRUE(wait_for("board * event_source 2 0"));
        for (const Running &process : processes())
            if (process.name == "ncemd")
                pid = process.pid;
        ASSERT_GT(pid, 0);
    }
    void raise(int event)
    {
        board([=](struct board &state) { EXPECT_EQ(board_event_raise(&state, event), 0); });
    }
    // Ends the daemon and returns its exit status.
    int stop()
    {
        signal(pid, SIGTERM);
        int status = -1;
        EXPECT_TRUE(wait_for_end(pid, 10, &status));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST(Ncemd, StartsInOrderAndStopsOnSigterm)
{
    DaemonBox box("maxdisks=2\nsupport_wol=no\n");
    box.directory("/sys/block/sdb");
    box.launch();
    EXPECT_EQ(box.stop(), 0);
    EXPECT_TRUE(box.record().in_order({
        "log err ncemd.cpp:*(*) start ncemd",
        "sleep 5",
        "board 0xc0184b0a disk_led 1 0 0 \"\"",
        "board 0xc0184b0a disk_led 2 0 0 \"\"",
        "board 0xc0184b0a disk_led 2 1 0 \"\"", // sdb is there
        kBeep,
        control("0x4002"),
        "board 0xc0044b24 start 1",
        kOrangeBlinking,
        "board 0xc0084b17 event_source 2 0",
        "log err ncemd_signal.cpp:* Receive SIGTERM from burnintest.",
    }));
    EXPECT_EQ(box.record().count("board 0xc0184b0a disk_led *"), 3);
}

TEST(Ncemd, WithoutABoardItRunsAllTheSame)
{
    DaemonBox box("maxdisks=1\n");
    box.board_remove();
    EXPECT_EQ(box.run({"ncemd"}).exit_status, 0);
    ASSERT_TRUE(box.wait_for("sleep 2")); // what a round without events does instead of waiting for one
    EXPECT_TRUE(
        box.record().in_order({"log err NCEMD: Norvbios fail*", "log err NCEMD: Fail to put the SysRun light up.",
                               "log err * Open norvbios error"}));
    for (const Sandbox::Running &process : box.processes())
        box.pid = process.pid;
    EXPECT_EQ(box.stop(), 0);
}

TEST(Ncemd, PowerOffRunsInAChildAndTheDaemonServesOn)
{
    DaemonBox box("");
    box.program("/usr/norv/sbin/backup_junior_log.sh");
    box.program("/sbin/poweroff");
    box.launch();
    box.raise(0x223);
    ASSERT_TRUE(box.wait_for("run /sbin/poweroff"));
    EXPECT_TRUE(box.record().in_order({"log err NCEMD: Shutdown the system.", control("0x4003"),
                                       "run /usr/norv/sbin/backup_junior_log.sh",
                                       "log err * norvpoweroff: System is going to [poweroff]", "run /sbin/poweroff"}));
    EXPECT_EQ(box.stop(), 0);
}

TEST(Ncemd, ButtonModeTogglesTheLampUntilItsEnd)
{
    DaemonBox box("");
    box.launch();
    for (const int event : {0x200, 0x223, 0x240, 0x2800, 0x230, 0x201})
        box.raise(event);
    ASSERT_TRUE(box.wait_for("board * event_get -> 0x201"));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_TRUE(box.record().in_order({
        control("0x5200"),
        "board * event_get -> 0x223",
        control("0x5201"),
        "board * event_get -> 0x240",
        control("0x5200"),
        control("0x5100"),
        control("0x5101"),
        kBeep,
        "board * event_get -> 0x2800",
        "log err NCEMD: events ignored",
        "board * event_get -> 0x230",
        control("0x5201"),
        "board * event_get -> 0x201",
        control("0x5200"),
    }));
    EXPECT_EQ(box.record().count("*Shutdown*"), 0); // 0x223 powers nothing off here
}

TEST(Ncemd, ButtonsOfTheMicroControllerAreAnswered)
{
    struct Case {
        const char *press;
        std::vector<std::string> record;
    };
    const Case kCases[] = {
        {"press power", {"board 0xc0044b07 button_power*", kBeep, control("0x4003")}},
        {"press reset", {"board 0xc0044b08 button_reset*", kBeep}},
    };
    for (const Case &row : kCases) {
        DaemonBox box("");
        box.launch();
        box.board_scenario(row.press);
        ASSERT_TRUE(box.wait_for(row.record[0])) << row.press;
        EXPECT_EQ(box.stop(), 0);
        EXPECT_TRUE(box.record().in_order(row.record));
    }
    DaemonBox box(""); // this one counts in button mode only
    box.launch();
    box.board_scenario("press copy");
    ASSERT_TRUE(box.wait_for("board 0xc0014b30 micro_read* 1"));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_EQ(box.record().count("board 0xc0044b09 *"), 0);
}

TEST(Ncemd, AlarmSoundsUntilMutedAndAgainAfterItWasGood)
{
    DaemonBox box("buzzeroffen=0x200\nbuzzeroffen_r2=0x0\n");
    box.board_scenario("status 0 1");
    box.launch();
    ASSERT_TRUE(box.wait_for("board 0xc0084b19 *"));
    box.raise(0x224);
    ASSERT_TRUE(box.wait_for("board * event_get -> 0x224"));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_TRUE(box.record().in_order({"board 0xc0084b19 status_pair*", kBeep}));
    EXPECT_TRUE(box.record().in_order({"board * event_get -> 0x224", "board 0xc0084b19 status_pair*"}));
    const std::string whole = box.record().text();
    EXPECT_EQ(whole.find(kBeep, whole.find("event_get -> 0x224")), std::string::npos) << whole;
}

TEST(Ncemd, PortThawMarksTheFaultForGood)
{
    DaemonBox box("maxdisks=2\nusbportcfg=0x80\ninternalportcfg=0x3\n");
    box.directory("/sys/block/sda");
    box.file("/sys/class/scsi_host/host0/norv_port_thaw", "0\n");
    box.file("/sys/class/scsi_host/host0/norv_diskname_trans", "sda\n");
    box.file("/sys/class/scsi_host/host1/norv_port_thaw", "1\n");
    box.file("/sys/class/scsi_host/host1/norv_diskname_trans", "sdb\n");
    box.file("/sys/class/scsi_host/host2/norv_port_thaw", "0\n");
    box.launch();
    box.raise(0x2800);
    ASSERT_TRUE(box.wait_for("board 0xc0184b0a disk_led 1 2 0 \"\""));
    box.remove("/sys/block/sda"); // pulled: the fault stays
    box.raise(0x2800);
    EXPECT_TRUE(box.wait_for("log err * File not exist: /sys/class/scsi_host/host2/norv_diskname_trans"));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_EQ(box.record().count("board 0xc0184b0a disk_led 1 2 0 *"), 1);
    EXPECT_EQ(box.record().count("board 0xc0184b0a disk_led 2 [12]*"), 0);
}

TEST(Ncemd, LinksThatComeAndGoAreFollowed)
{
    DaemonBox box("");
    BoxLinks links(box);
    ASSERT_TRUE(links.wire("eth0", "peer0")) << strerror(errno);
    ASSERT_TRUE(links.wire("eth1", "peer1")) << strerror(errno);
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth0", "BOOTPROTO=static\nIPADDR=10.1.2.3\nNETMASK=255.255.0.0\n");
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth1", "BOOTPROTO=dhcp\n");
    for (const char *path : {"/sbin/route", "/sbin/udhcpc", "/sbin/ifconfig"})
        box.program(path);
    for (const char *name : {"eth0", "eth1", "peer0", "peer1"})
        ASSERT_TRUE(links.set(name, false));
    box.launch();
    ASSERT_TRUE(links.set("peer0", true) && links.set("eth0", true));
    ASSERT_TRUE(box.wait_for("run /sbin/route add -net 10.1.0.0 netmask 255.255.0.0 dev eth0"));
    ASSERT_TRUE(links.set("peer1", true) && links.set("eth1", true));
    ASSERT_TRUE(box.wait_for("run /sbin/udhcpc -i eth1 -p /etc/dhcpc/dhcpcd-eth1.pid -b"));
    ASSERT_TRUE(links.set("peer1", false));
    ASSERT_TRUE(box.wait_for("run /sbin/ifconfig eth1 inet 0.0.0.0"));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_EQ(box.record().count("run /sbin/udhcpc -i eth0 *"), 0);
}

// The panel's line is a plain file here: what the daemon writes on one descriptor stands in a row, and the single bytes
// that go through a descriptor of their own stand over its first byte.
TEST(Ncemd, PanelTellsWhatIsMissingThenAsksToInstall)
{
    DaemonBox box("support_acm=yes\nusbportcfg=0x80\ninternalportcfg=0x1\n");
    box.file("/dev/ttyACM0", "");
    box.file("/tmp/lcm/sharemem", "");
    box.file("/proc/sys/kernel/norv_serial", "1234567890123\n");
    box.leaves({"memory *"});
    BoxLinks links(box);
    ASSERT_TRUE(links.wire("eth0", "peer0"));
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth0", "BOOTPROTO=static\n");
    box.launch();
    const auto screen = [](const std::string &first, const std::string &second) {
        std::string record = "-A#" + first + "#" + second + "#";
        record.resize(102);
        return record;
    };
    const auto shown = [&](const std::string &text) { return box.read_file("/dev/ttyACM0").find(text); };
    const auto wait_for_screen = [&](const std::string &text) {
        for (int tries = 0; tries < 500; tries++, usleep(10000))
            if (shown(text) != std::string::npos)
                return true;
        return false;
    };
    const std::string no_disk = screen("No Hard Disks!", "Please Insert");
    const std::string no_link = screen("No Network Link!", "Please Connect");
    ASSERT_TRUE(wait_for_screen(no_link));
    using namespace std::string_literals;
    EXPECT_EQ(shown(";\0003\0-Ff\0-Bo\0-Lf\0-If\0-Bd\0"s + no_disk + no_link), 0U);

    box.directory("/sys/block/sda");
    const std::string disk_found = screen("HDD Detected!", "Please Wait...");
    ASSERT_TRUE(wait_for_screen(disk_found));
    ASSERT_TRUE(links.set("peer0", true) && links.set("eth0", true));
    const std::string prompt = screen("Install NOS by Assistant or WebInstall", "SN:1234567890123");
    ASSERT_TRUE(wait_for_screen(prompt));
    EXPECT_NE(shown(screen("Link Detected!", "Please Wait...") + prompt), std::string::npos);
    EXPECT_EQ(box.stop(), 0);
    const std::string all = box.read_file("/dev/ttyACM0");
    EXPECT_EQ(all.find(prompt), all.rfind(prompt)); // shown once
    EXPECT_EQ(all[0], '7');                         // the status LED goes off at the end
    EXPECT_TRUE(
        box.record().in_order({"log err * Invalid value form LCM module.", "log err * close CdcAcm for LCM module."}));
}

// A daemon's memory and descriptors, as the kernel counts them.
struct Footprint {
    int resident_kib, descriptors;
};
Footprint footprint_of(Sandbox &box, pid_t pid)
{
    const std::string proc = BOX_PROC "/" + std::to_string(pid);
    const Result result = box.run({"/bin/sh", "-c",
                                   "set -- " + proc +
                                       "/fd/*; while read key value rest; do [ \"$key\" = VmRSS: ] && echo "
                                       "$value $#; done < " +
                                       proc + "/status; exit 0"});
    Footprint footprint = {};
    EXPECT_EQ(sscanf(result.out.c_str(), "%d %d", &footprint.resident_kib, &footprint.descriptors), 2) << result.err;
    return footprint;
}

TEST(Ncemd, SoakLeavesMemoryDescriptorsAndChildrenConstant)
{
    constexpr int kEventsPerRound = 500;
    const char *wanted = getenv("SOAK_ROUNDS"); // 200 for 10^5 events
    const int rounds = wanted != nullptr ? atoi(wanted) : 8;
    DaemonBox box("maxdisks=4\nusbportcfg=0x80\ninternalportcfg=0xf\n");
    BoxLinks links(box);
    ASSERT_TRUE(links.wire("eth0", "peer0"));
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth0", "BOOTPROTO=static\nIPADDR=10.1.2.3\nNETMASK=255.0.0.0\n");
    box.program("/sbin/route");
    box.launch();
    ASSERT_TRUE(links.set("peer0", true));
    Footprint first = {};
    for (int round = 0; round < rounds; round++) {
        ASSERT_TRUE(links.set("eth0", round % 2 == 0));
        for (int event = 0; event < kEventsPerRound;) {
            box.board([&](struct board &state) {
                while (event < kEventsPerRound && board_event_raise(&state, event % 3 == 0 ? 0x2800 : 0x224) == 0)
                    event++;
            });
            usleep(1000);
        }
        if (round == 3) // the heap has found its size
            first = footprint_of(box, box.pid);
    }
    const Footprint last = footprint_of(box, box.pid);
    EXPECT_LE(last.resident_kib, first.resident_kib + 64);
    EXPECT_LE(last.descriptors, first.descriptors + 1); // the board may be open for a request just now
    EXPECT_EQ(box.stop(), 0);
    EXPECT_EQ(box.processes().size(), 0U);
    RecordProperty("resident_kib", last.resident_kib);
    RecordProperty("descriptors", last.descriptors);
}

} // namespace

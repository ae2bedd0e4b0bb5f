// The event daemon on the simulated board: start, each event, disks, links, stop.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/wait.h>
#include <unistd.h>

#include "applets/ncemd.h"
#include "build_paths.h"
#include "platform/board/board.h"
#include "tests/support/box_controller.h"
#include "tests/support/box_links.h"
#include "tests/support/in_child.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf";
constexpr char kOrangeBlinking[] = "board 0xc0904b01 control 0x5202 0x0 \"\"";
constexpr char kBeep[] = "board 0xc0904b01 control 0x5301 0x0 \"\"";

std::string control(const std::string &code)
{
    return "board 0xc0904b01 control " + code + " 0x0 \"\"";
}

// Waits for what no single line of the record tells; false after 20 s.
template <typename Condition> bool wait_until(Condition holds)
{
    for (int tries = 0; tries < 2000; tries++, usleep(10000))
        if (holds())
            return true;
    return false;
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
    void launch(const RunOptions &options = {})
    {
        const Result result = run({"ncemd"}, options);
        EXPECT_EQ(result.exit_status, 0) << result.record.text();
        ASSERT_TRUE(wait_for("board * event_source 2 0"));
        for (const Running &process : processes())
            if (process.name == "ncemd" && (pid < 0 || process.pid < pid)) // its children are called so, too
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

// From start to stop: events are raised in turn, then something happens on the board, and the daemon does what it does.
TEST(Ncemd, Sessions)
{
    const auto text = [](const char *sent) { return std::string("board 0xc0014b21 micro_write \"") + sent + "\"\n"; };
    const std::string beep = std::string(kBeep) + "\n", on = control("0x5200") + "\n", off = control("0x5201") + "\n",
                      no_panel = "log err open CdcAcm error.\n", oob = "support_oob_ctl=yes\n",
                      ports = "maxdisks=2\nusbportcfg=0x80\ninternalportcfg=0x7\n",
                      taken = "board * event_get -> 0x2800", refused = "log err * fail to parse disk *";
    const auto controller = [](char word) -> Change {
        return [word](Sandbox &box) {
            for (const char *path : {"/usr/norv/sbin/backup_junior_log.sh", "/sbin/poweroff", "/sbin/reboot"})
                box.program(path);
            controller_add(box, {{'\0', word}, {'\0', '\0'}});
        };
    };
    const auto acts = [](const std::string &says) {
        return "ioctl /dev/ipmi0 * 3070\nlog err * NCEMD: " + says + " the system.\nioctl /dev/ipmi0 * 3071";
    };
    const auto once = [](const std::string &runs, const std::string &not_run) {
        return "1 run " + runs + "\n0 run " + not_run + "\n1 ioctl /dev/ipmi0 * 3071";
    };
    const auto thawed = [](const char *thaw, const char *name) {
        const std::string host = "/sys/class/scsi_host/host0/norv_";
        return file(host + "port_thaw", thaw) + file(host + "diskname_trans", name);
    };
    const struct {
        const char *what;
        std::string defaults, events;
        const char *scenario;
        std::string record;
        std::string counts; // "NUMBER PATTERN" in each line
        Change prepare = {};
    } kCases[] = {
        {"start", "maxdisks=2\nsupport_wol=no\n", "", "",
         "log err ncemd.cpp:*(*) start ncemd\nsleep 5\nboard 0xc0184b0a disk_led 1 0 0 \"\"\n"
         "board 0xc0184b0a disk_led 2 0 0 \"\"\nboard 0xc0184b0a disk_led 2 1 0 \"\"\n" + // sdb is there
             beep +
             control("0x4002") + "\nboard 0xc0044b24 start 1\n" + kOrangeBlinking +
             "\nboard 0xc0084b17 event_source 2 0",
         "3 board 0xc0184b0a disk_led *", directory("/sys/block/sdb")},
        {"the lamp is toggled until the end of button mode", "", "0x200 0x223 0x240 0x2800 0x230 0x201", "",
         on + "board * event_get -> 0x223\n" + off + "board * event_get -> 0x240\n" + on + control("0x5100") + "\n" +
             control("0x5101") + "\n" + beep +
             "board * event_get -> 0x2800\nlog err NCEMD: events ignored\n"
             "board * event_get -> 0x230\n" +
             off + "board * event_get -> 0x201\n" + on,
         "0 *Shutdown*"}, // 0x223 powers nothing off here
        {"a second UART is told in text, and its beeps are waited for", "supportuart2=yes\nsupport_acm=yes\n",
         "0x200 0x240 0x201 0x224 0x224 0x224 0x224 0x224 0x224 0x230", "",
         "usleep 1200000\n" + text("3") + text("4") + text(";") + no_panel + text("8") + no_panel +
             "board * event_get -> 0x240\n" + text(":") + no_panel + text("B") + text("@") + "usleep 1200000\n" +
             text("3") + "board * event_get -> 0x201\n" + text("8") + "board * event_get -> 0x230",
         "0 board * control *\n5 log err * Fail to open /dev/ttyACM from LCM", // and no more
         call({.call = "open", .args = "/dev/ttyACM0 *", .error = ENXIO})},

        {"out-of-band 2", oob, "", "", acts("Reboot"), once("/sbin/reboot", "/sbin/poweroff"), controller(2)},
        {"out-of-band 3", oob, "", "", acts("Shutdown"), once("/sbin/poweroff", "/sbin/reboot"), controller(3)},

        {"power", "", "", "press power", "board 0xc0044b07 button_power*\n" + beep + control("0x4003"), ""},
        {"reset", "", "", "press reset", "board 0xc0044b08 button_reset*\n" + beep, ""},
        {"copy in button mode", "", "0x200", "press copy", on + "board 0xc0044b09 button_copy*", ""},
        {"power is not answered", "", "", "fail button_power EIO\npress power",
         "board 0xc0044b07 button_power*\nlog err ncemd_button.cpp:* Failed to ioctl, errno=5, Input/output error\n" +
             beep + control("0x4003"),
         ""},
        {"micro-controller is not answered once", "", "", "fail micro_read EIO 1\npress reset",
         "log err ncemd_button.cpp:* microP get error*\nboard 0xc0044b08 button_reset*\n" + beep, ""},

        // Of ports that thaw those are passed that have no internal disk.
        {"no newline: not a word", ports, "0x2800", "", taken, "0 " + refused, thawed("0\n", "SAS")},
        {"SAS", ports, "0x2800", "", taken, "1 log err * fail to parse disk SAS* id", thawed("0\n", "SAS\n")},
        {"on the USB port", ports, "0x2800", "", taken, "0 " + refused, thawed("0\n", "sdh\n")},
        {"another state", ports, "0x2800", "", taken, "0 " + refused, thawed("10\n", "sda\n")},
        {"no port", "", "0x2800", "", "log err * Failed to glob norv_port_thaw: error(3) *", ""},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.what);
        DaemonBox box(row.defaults);
        row.prepare(box);
        box.launch();
        for (const std::string &event : words(row.events))
            box.raise(static_cast<int>(std::stol(event, nullptr, 16)));
        if (row.events == "0x200") { // what happens then is for button mode
            ASSERT_TRUE(box.wait_for(control("0x5200")));
        }
        box.board_scenario(row.scenario);
        EXPECT_TRUE(wait_until([&] { return box.record().in_order(lines(row.record)); }))
            << box.record().in_order(lines(row.record)).message();
        for (const std::string &count : lines(row.counts))
            wait_until([&] { return box.record().count(count.substr(2)) >= count[0] - '0'; });
        if (row.events == "0x200")
            box.raise(0x201);
        EXPECT_EQ(box.stop(), 0);
        const Record record = box.record();
        for (const std::string &count : lines(row.counts))
            EXPECT_EQ(record.count(count.substr(2)), count[0] - '0') << count << "\n" << record.text();
        EXPECT_EQ(record.count("log err ncemd_signal.cpp:* Receive SIGTERM from burnintest."), 1);
        EXPECT_EQ(record.count("board 0xc0184b0a disk_led * 2 0 *"), 0);
    }
}

TEST(Ncemd, CopyButtonCountsInButtonModeOnly)
{
    DaemonBox box("");
    box.launch();
    box.board_scenario("press copy");
    ASSERT_TRUE(box.wait_for("board 0xc0014b30 micro_read* 1"));
    const int reads = box.record().count("board * micro_read*");
    ASSERT_TRUE(wait_until([&] { return box.record().count("board * micro_read*") > reads; }));
    box.call({.call = "open", .args = "/dev/norvbios *", .error = EIO}); // what is open already still tells of presses
    box.board_scenario("press power");
    EXPECT_TRUE(box.wait_for("log err NcemDoButtonCtrl(*)open norvbios error"));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_EQ(box.record().count("board 0xc0044b07 *") + box.record().count("board 0xc0044b09 *"), 0);
    EXPECT_EQ(box.record().count(kBeep), 1); // that of the start
}

// Lamps of more than 26 disks, and sleeping ports: all but those on a card.
TEST(Ncemd, StartDarkensLampsAndDisablesWaking)
{
    DaemonBox box("maxdisks=27\nsupport_wol=yes\nsupport_led_behavior_v2=yes\n");
    BoxLinks links(box);
    ASSERT_TRUE(links.wire("eth0", "eth1")); // both down
    box.symlink("/sys/class/net/eth1/device", "/sys/devices/0000:02:00.0");
    box.directory("/sys/devices/0000:02:00.0");
    box.directory("/sys/bus/pci/devices/0000:00:1c.0/0000:02:00.0");
    box.file("/etc.defaults/extensionPorts", "[pci]\n\tslot1=\"0000:00:1c.0\"\n");
    box.directory("/sys/block/sd{"); // what would be the letter of the 27th
    box.board_scenario("fail disk_led EIO 1\nfail start EIO");
    box.request({.device = "socket:*",
                 .request = 0x8946, // SIOCETHTOOL: waking is on
                 .bytes = std::string("\5\0\0\0\x20\0\0\0\x20\0\0\0", 12),
                 .reads = 12,
                 .at = offsetof(ifreq, ifr_data),
                 .is_pointer = true});
    box.launch();
    EXPECT_EQ(box.stop(), 0);
    EXPECT_TRUE(box.record().in_order(
        {"board 0xc0184b0a disk_led 1 0 0 *",
         "log err ncemd_disk_led.cpp:* Failed to ioctl, errno=5, Input/output error",
         "board 0xc0184b0a disk_led 27 0 0 *", kBeep, control("0x4002"),
         "ioctl socket:* SIOCETHTOOL 050000000000000000000000", "ioctl socket:* SIOCETHTOOL 060000000000000000000000",
         "board 0xc0044b24 start 1*", "log err ncemd.cpp:* ioctl failed", "board * event_source 2 0"}));
    EXPECT_EQ(box.record().count("ioctl socket:* SIOCETHTOOL 06*"), 2); // eth0 and lo; eth1 is on a card
    EXPECT_EQ(box.record().count("board 0xc0184b0a disk_led * 1 0 *"), 0);
    EXPECT_EQ(box.record().count(kOrangeBlinking), 0);
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
    box.board_scenario("fail control EIO"); // the machine goes off all the same
    box.raise(0x223);
    EXPECT_TRUE(box.wait_for("log info * norvpoweroff: NORVHWExternalControl[NORV_SYS_SHUTDOWN] failed"));
    EXPECT_TRUE(wait_until([&] { return box.record().count("run /sbin/poweroff") == 2; }));
    box.call({.call = "fork", .error = EAGAIN});
    box.raise(0x223);
    EXPECT_TRUE(box.wait_for("log err NCEMD: Error during shutdown"));
    EXPECT_EQ(box.stop(), 0);
}

TEST(Ncemd, SigtermInButtonModeIsServedAtItsEnd)
{
    DaemonBox box("");
    box.launch();
    box.raise(0x200);
    ASSERT_TRUE(box.wait_for(control("0x5200")));
    box.signal(box.pid, SIGTERM);
    ASSERT_TRUE(box.wait_for("log err * Receive SIGTERM from burnintest."));
    EXPECT_FALSE(box.wait_for_end(box.pid, 0.1));
    EXPECT_EQ(box.record().count(control("0x5200")), 1);
    box.raise(0x201);
    int status = -1;
    EXPECT_TRUE(box.wait_for_end(box.pid, 10, &status));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(box.record().count(control("0x5200")), 2);
}

TEST(Ncemd, ButtonModeWaitsForABoardThatIsGone)
{
    DaemonBox box("");
    box.launch();
    box.raise(0x200);
    ASSERT_TRUE(box.wait_for(control("0x5200")));
    box.board_remove();
    EXPECT_TRUE(box.wait_for("sleep 2")); // no round without a pause
    box.signal(box.pid, SIGKILL);
    EXPECT_TRUE(box.wait_for_end(box.pid));
}

TEST(Ncemd, SasModelWithRaidOnlyMasksItsLamps)
{
    DaemonBox box("");
    box.file(kDefaults, "maxdisks=2\nsupportraid=yes\nsupportsas=yes\ninternal_disk_without_led_mask=yes\n");
    box.board_scenario("fail disk_led_mask EIO 1");
    box.directory("/sys/block/sda");
    box.file("/sys/class/enclosure/0:0:0:0/Slot 1/fault", "1\n");
    box.file("/sys/class/enclosure/0:0:0:0/Slot 1/locate", "1\n");
    box.launch();
    EXPECT_EQ(box.stop(), 0);
    EXPECT_TRUE(box.record().in_order({"board 0xc0184b0a disk_led 1 0 0 \"\"", "board 0xc0184b0a disk_led 2 0 0 \"\"",
                                       "board 0xc0044b25 disk_led_mask 1*",
                                       "log err * Failed to ioctl Disk led Mask, errno=5, Input/output error",
                                       "board 0xc0044b25 disk_led_mask 1"}));
    EXPECT_EQ(box.record().count("board 0xc0184b0a disk_led *"), 2); // dark at the start, and left alone
    EXPECT_EQ(box.read_file("/sys/class/enclosure/0:0:0:0/Slot 1/fault"), "0\n");
    EXPECT_EQ(box.read_file("/sys/class/enclosure/0:0:0:0/Slot 1/locate"), "0\n");
}

TEST(Ncemd, AlarmSoundsUntilMutedAndAgainAfterItWasGood)
{
    DaemonBox box("buzzeroffen=0x0\nbuzzeroffen_r2=0x200\n");
    box.file("/proc/sys/kernel/norv_hw_revision", "r2\n"); // whose key goes before the plain one
    const auto pair_set = [&](const std::string &pair) {   // and see it read
        box.board_scenario("status " + pair);
        return box.wait_for("board 0xc0084b19 status_pair -> " + pair);
    };
    box.board_scenario("status 0 1");
    box.launch();
    ASSERT_TRUE(box.wait_for("board 0xc0084b19 status_pair -> 0 1"));
    box.raise(0x224);
    ASSERT_TRUE(box.wait_for("board * event_get -> 0x224"));
    ASSERT_TRUE(pair_set("0 3")); // still bad, and still muted
    ASSERT_TRUE(pair_set("1 1"));
    ASSERT_TRUE(pair_set("2 1")); // neither good nor bad
    ASSERT_TRUE(pair_set("1 0"));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_TRUE(box.record().in_order({"board 0xc0084b19 status_pair -> 0 1", kBeep}));
    const std::string whole = box.record().text();
    const size_t muted = whole.find("event_get -> 0x224"), again = whole.find("status_pair -> 1 0");
    EXPECT_EQ(whole.find(kBeep, muted), whole.find(kBeep, again)) << whole;
    EXPECT_NE(whole.find(kBeep, again), std::string::npos) << whole;
}

TEST(Ncemd, PortThawMarksTheFaultForGood)
{
    DaemonBox box("maxdisks=2\nusbportcfg=0x80\ninternalportcfg=0x3\n");
    box.directory("/sys/block/sda");
    box.directory("/sys/block/sdb");
    box.file("/sys/class/scsi_host/host0/norv_port_thaw", "0\n");
    box.file("/sys/class/scsi_host/host0/norv_diskname_trans", "sda\n");
    box.file("/sys/class/scsi_host/host1/norv_port_thaw", "1\n");
    box.file("/sys/class/scsi_host/host1/norv_diskname_trans", "sdb\n");
    box.file("/sys/class/scsi_host/host2/norv_port_thaw", "0\n");
    box.launch();
    box.raise(0x2800);
    ASSERT_TRUE(box.wait_for("board 0xc0184b0a disk_led 1 2 0 \"\""));
    EXPECT_TRUE(box.wait_for("log err * File not exist: /sys/class/scsi_host/host2/norv_diskname_trans"));
    box.remove("/sys/block/sda"); // both are pulled: one fault stays, one LED goes off
    box.remove("/sys/block/sdb");
    EXPECT_TRUE(wait_until([&] { return box.record().count("board 0xc0184b0a disk_led 2 0 0 *") == 2; }));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_EQ(box.record().text("board 0xc0184b0a disk_led 1 *"), "board 0xc0184b0a disk_led 1 0 0 \"\"\n"
                                                                  "board 0xc0184b0a disk_led 1 1 0 \"\"\n"
                                                                  "board 0xc0184b0a disk_led 1 2 0 \"\"\n");
    EXPECT_EQ(box.record().count("board 0xc0184b0a disk_led 2 2 *"), 0);
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
    ASSERT_TRUE(links.set("eth0", true) && links.set("eth1", true));
    ASSERT_TRUE(links.settle("eth0", false) && links.settle("eth1", false));
    box.launch();
    EXPECT_EQ(box.record().count("run /sbin/route del -net 10.1.0.0 netmask 255.255.0.0 dev eth0"), 1);
    ASSERT_TRUE(links.set("peer0", true));
    ASSERT_TRUE(box.wait_for("run /sbin/route add -net 10.1.0.0 netmask 255.255.0.0 dev eth0"));
    ASSERT_TRUE(links.set("peer1", true));
    ASSERT_TRUE(box.wait_for("run /sbin/udhcpc -i eth1 -p /etc/dhcpc/dhcpcd-eth1.pid -b"));
    ASSERT_TRUE(links.set("peer1", false));
    ASSERT_TRUE(box.wait_for("run /sbin/ifconfig eth1 inet 0.0.0.0"));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_EQ(box.record().count("run /sbin/udhcpc -i eth0 *"), 0);
}

// The box's first process is nobody's to end.
TEST(Ncemd, DhcpClientThatSurvivesIsNotStartedAgain)
{
    DaemonBox box("");
    BoxLinks links(box);
    ASSERT_TRUE(links.wire("eth1", "peer1")) << strerror(errno);
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth1", "BOOTPROTO=dhcp\n");
    box.file("/etc/dhcpc/dhcpcd-eth1.pid", "1\n");
    box.call({.call = "kill", .real = true});
    box.program("/sbin/udhcpc");
    box.program("/sbin/ifconfig");
    box.launch();
    ASSERT_TRUE(links.set("peer1", true) && links.set("eth1", true));
    EXPECT_TRUE(box.wait_for("log err * Udhcp kill error"));
    EXPECT_TRUE(box.record().in_order({"kill 1 *15*", "sleep 1", "sleep 1", "sleep 1", "kill 1 *9*", "sleep 1",
                                       "log err net_dhcp_client.cpp:* killed failed",
                                       "log err link_event_handle.cpp:* Udhcp kill error"}));
    EXPECT_EQ(box.stop(), 0);
    EXPECT_EQ(box.record().count("run *"), 0);
}

// The panel's line is a plain file here: what the daemon writes on one descriptor stands in a row, and the single bytes
// that go through a descriptor of their own stand over its first byte.
struct PanelBox : DaemonBox {
    BoxLinks links{*this};

    PanelBox() : DaemonBox("support_acm=yes\nusbportcfg=0x80\ninternalportcfg=0x1\n")
    {
        EXPECT_TRUE(links.wire("eth0", "peer0"));
        host_file("/bin/probe", SANDBOX_PROBE);
        file("/dev/ttyACM0", "");
        file("/tmp/lcm/sharemem", "");
        file("/proc/sys/kernel/norv_serial", "1234567890123\n");
        file("/etc/sysconfig/network-scripts/ifcfg-eth0", "BOOTPROTO=static\n");
        leaves({"memory *"});
    }
    std::string shown() const { return read_file("/dev/ttyACM0"); }
    bool wait_for_screen(const std::string &text) const
    {
        return wait_until([&] { return shown().find(text) != std::string::npos; });
    }
    // Ends the daemon when the shared byte says what the machine is about to do; it tells so last.
    void expect_last(char what, const std::string &last_screen)
    {
        EXPECT_EQ(run({"/bin/probe", "shared", std::string(1, what) + " /tmp/lcm/sharemem"}).out,
                  "named /bin/probe\nshared 0\n");
        EXPECT_EQ(stop(), 0);
        EXPECT_TRUE(shown().ends_with(last_screen + std::string("-Fo\0", 4))) << shown();
        EXPECT_EQ(shown()[0], '7'); // the status LED goes off at the end
    }
};

std::string screen(const std::string &first, const std::string &second)
{
    std::string record = "-A#" + first + "#" + second + "#";
    record.resize(102);
    return record;
}

TEST(Ncemd, PanelTellsWhatIsMissingThenAsksToInstall)
{
    PanelBox box;
    box.launch();
    const std::string no_disk = screen("No Hard Disks!", "Please Insert");
    const std::string no_link = screen("No Network Link!", "Please Connect");
    ASSERT_TRUE(box.wait_for_screen(no_link));
    using namespace std::string_literals;
    EXPECT_EQ(box.shown().find(";\0003\0-Ff\0-Bo\0-Lf\0-If\0-Bd\0"s + no_disk + no_link), 0U);

    box.directory("/sys/block/sda");
    const std::string disk_found = screen("HDD Detected!", "Please Wait...");
    ASSERT_TRUE(box.wait_for_screen(disk_found));
    ASSERT_TRUE(box.links.set("peer0", true) && box.links.set("eth0", true));
    const std::string prompt = screen("Install NOS by Assistant or WebInstall", "SN:1234567890123");
    ASSERT_TRUE(box.wait_for_screen(screen("Link Detected!", "Please Wait...") + prompt));
    EXPECT_EQ(box.shown().find(prompt), box.shown().rfind(prompt)); // once

    box.remove("/sys/block/sda"); // pulled and put back: asked anew
    ASSERT_TRUE(box.wait_for_screen(prompt + no_disk));
    box.directory("/sys/block/sda");
    ASSERT_TRUE(box.wait_for_screen(disk_found + prompt));
    box.expect_last('2', screen("System Rebooting", "Please Wait..."));
    EXPECT_TRUE(box.record().in_order({"log err * close CdcAcm for LCM module."}));
}

TEST(Ncemd, PanelTellsOfTheMemoryTest)
{
    PanelBox box;
    box.directory("/sys/block/sda");
    box.file("/.memtest", "");
    ASSERT_TRUE(box.links.set("peer0", true) && box.links.set("eth0", true));
    box.launch();
    ASSERT_TRUE(box.wait_for_screen("-A#Memory Testing#Please Wait...#"));
    box.expect_last('1', screen("System Power Off", "Please Wait..."));
    EXPECT_EQ(box.record().count("log err * Failed to fscanf errno=*"), 0);
}

// Children that end while SIGCHLD is blocked share one signal; none may stay a zombie.
TEST(Ncemd, OneSignalReapsAllChildren)
{
    EXPECT_EQ(in_child([] {
                  sigset_t sigchld;
                  sigemptyset(&sigchld);
                  sigaddset(&sigchld, SIGCHLD);
                  sigprocmask(SIG_BLOCK, &sigchld, nullptr);
                  for (int child = 0; child < 3; child++) {
                      const pid_t pid = fork();
                      if (pid == 0)
                          _exit(0);
                      siginfo_t ended;
                      EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT), 0);
                  }
                  ncemd_sigchld_init();
                  sigprocmask(SIG_UNBLOCK, &sigchld, nullptr);
                  return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD ? 0 : 1;
              }),
              0);
}

} // namespace

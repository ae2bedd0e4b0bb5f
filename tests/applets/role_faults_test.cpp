// What goes wrong around the roles besides installs: each program that a role runs fails in each way, so does each
// request that it sends to a device, and of everything a process needs there is too little. Programs and requests come
// from the record of a good run, so that none is forgotten. Daemons get each signal at many moments.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <linux/nvme_ioctl.h>
#include <linux/sockios.h>
#include <memory>
#include <scsi/sg.h>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include "applets/manutild.h"
#include "platform/board/board.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/support/box_controller.h"
#include "tests/support/box_links.h"
#include "tests/support/box_station.h"
#include "tests/support/box_text.h"
#include "tests/support/points.h"
#include "tests/support/program_faults.h"
#include "tests/support/rows.h"
#include "tests/support/sanitized.h"
#include "tests/support/udpd_datagram.h"
#include "tests/support/web_install.h"

namespace
{

constexpr double kLimit_s = 60; // for what comes sooner unless the machine is busy

struct Machine;
using Step = std::function<void(Machine &)>;

// One run of a role, and what is beside what every machine has.
struct Row {
    const char *command;
    const char *silent = ""; // a line each, "WHAT: FAULT", patterns: nobody needs to hear of it
    Step prepare = nullptr;  // before each run
    Step ask = nullptr;      // of a daemon that serves
    RunOptions options = {.env = {"REMOTE_ADDR=10.0.0.9"}};
};

// A daemon is idle when the record says so; after something was asked, when it has said so so many times again.
struct Daemon {
    const char *role, *idle;
    int rounds;
    std::vector<int> ends_by, ends_well_by; // signals; of all others it goes on
};
const Daemon kDaemons[] = {
    {"ncemd", "select 2.*", 3, {SIGINT, SIGHUP, SIGUSR1}, {SIGTERM}},
    {"findhostd", "select 5.*", 1, {}, {SIGTERM, SIGINT}},
    {"manutild", "select 3.*", 1, {SIGTERM, SIGINT, SIGHUP, SIGUSR1}, {}},
};

// What a run came to, and all that anyone was told of it: exit status, output, log and frames.
struct Outcome {
    int exit_status = -1, signal = 0;
    std::string told;
    Record record;
};

// Has whatever the roles below ask for, in small.
struct Machine : Sandbox {
    const Row &row;
    BoxLinks links{*this};
    std::unique_ptr<BoxStation> station{};
    bool waits = true; // for the daemon, after it was asked

    explicit Machine(const Row &of) : row(of)
    {
        EXPECT_TRUE(links.live_wire("eth0", "peer0"));
        station = std::make_unique<BoxStation>(*this, "peer0");
        if (daemon() == nullptr || daemon()->role == std::string("ncemd"))
            compress_sleeps();
        else
            for (const char *seconds : {"1", "5", "15", "30"}) // not those of who goes on for ever
                call({.call = "sleep", .args = seconds});
        call({.call = "usleep"});
        leaves({"/tmp/*", "/dev/md*", "/run/*", "/var/run/*", "semaphore *", "/proc/*", "/etc/*", "/sys/*",
                "/.box/volumes/*", "/var/log/*", "/recover", "/_disk"});
        make();
    }
    void programs(const char *paths)
    {
        for (const std::string &path : words(paths))
            program(path);
    }
    // Puts everything in order, as it was before the first run.
    void make()
    {
        file(kConf, "supportraid=\"yes\"\nmaxdisks=\"4\"\ninternalportcfg=\"0xf\"\n"
                    "esataportcfg=\"0\"\nusbportcfg=\"0x10000\"\nsupportmicrop=\"yes\"\n");
        file("/etc.defaults/VERSION", "buildnumber=\"42\"\n");
        file("/proc/swaps", "Filename\tType\tSize\tUsed\tPriority\n");
        file("/proc/cpuinfo", "processor : 0\n");
        file("/proc/sys/kernel/norv_swap_flag", "0");
        file("/proc/sys/kernel/norv_install_flag", "0");
        file("/proc/partitions", "major minor  #blocks  name\n\n   8 0 1073741824 sda\n   8 16 1073741824 sdb\n");
        for (const char *disk : {"sda", "sdb"}) {
            directory(std::string("/sys/block/") + disk);
            device(std::string("/dev/") + disk, 1ULL << 40);
        }
        programs("/sbin/mdadm /bin/norvdd /sbin/mkswap /usr/sbin/inetd /bin/dd /bin/mkdir /sbin/pvs /sbin/lvremove "
                 "/sbin/vgremove /sbin/pvremove");
        host_program("/bin/sh");
        program("/usr/sbin/arping", {{.args = "*8.8.8.8", .exit_status = 1}, {}});
        for (const char *state :
             {"/tmp/norv_swap_status.json", "/tmp/recover_fail", "/tmp/root_info.cache", "/dev/md0", "/dev/md1"})
            remove(state);
        if (row.prepare != nullptr)
            row.prepare(*this);
        program("/sbin/sfdisk", {{.args = "-l -uS*", .exit_status = 1}, {}});
    }
    [[nodiscard]] const Daemon *daemon() const
    {
        const auto *found = std::find_if(std::begin(kDaemons), std::end(kDaemons),
                                         [&](const Daemon &one) { return one.role == std::string(row.command); });
        return row.ask != nullptr && found != std::end(kDaemons) ? found : nullptr;
    }
    Outcome act(const RunOptions &options)
    {
        if (daemon() != nullptr)
            return serve(options);
        Result result = run(words(row.command), options);
        return {result.exit_status, result.signal,
                lines_told(std::to_string(result.exit_status) + "\n" + result.out + result.err + result.log_text()),
                std::move(result.record)};
    }
    Outcome act() { return act(row.options); }

    // Of a daemon.
    Process launch(const RunOptions &options)
    {
        RunOptions with_time = options;
        with_time.seconds = 2 * kLimit_s;
        const int before = record().count(daemon()->idle);
        Process process = start({row.command}, with_time);
        wait_until(
            [&] { return record().count(daemon()->idle) > before || (!process.running() && processes().empty()); });
        return process;
    }
    void idle_wait(int before)
    {
        if (!waits)
            return;
        wait_until([&] {
            size_t children = processes().size();
            return is_gone() ||
                   (record().count(daemon()->idle) >= before + daemon()->rounds && children <= (is_ncemd() ? 1U : 99U));
        });
    }
    [[nodiscard]] bool is_ncemd() const { return daemon()->role == std::string("ncemd"); }
    [[nodiscard]] bool is_gone() const
    {
        const std::vector<Running> running = processes();
        return std::none_of(running.begin(), running.end(),
                            [&](const Running &one) { return one.name == daemon()->role; });
    }
    void send(uint16_t port, const std::string &payload)
    {
        const int before = record().count(daemon()->idle);
        station->send_udp(port, payload);
        idle_wait(before);
    }
    // All processes end.
    void all_end(int number)
    {
        wait_until([&] {
            daemon_signal(number);
            return processes().empty();
        });
    }
    // The first of the daemon's processes: one that it has just started has its name still, and must run its program.
    void daemon_signal(int number) const
    {
        std::vector<Running> running = processes();
        std::erase_if(running, [&](const Running &one) { return one.name != daemon()->role; });
        const auto first = std::min_element(running.begin(), running.end(),
                                            [](const Running &a, const Running &b) { return a.pid < b.pid; });
        if (first != running.end())
            signal(first->pid, number);
    }
    template <typename Condition> bool wait_until(Condition holds)
    {
        for (int tries = 0; tries < kLimit_s * 300; tries++, usleep(3000))
            if (holds())
                return true;
        ADD_FAILURE() << "waited for nothing\n" << record().text();
        return false;
    }

  private:
    Outcome serve(const RunOptions &options)
    {
        Outcome outcome;
        const size_t from = record().lines.size();
        Process process = launch(options);
        if (!is_gone())
            row.ask(*this);
        all_end(SIGTERM);
        const Result result = process.wait();
        outcome.exit_status = result.exit_status;
        outcome.signal = result.signal;
        std::string told = std::to_string(result.exit_status) + "\n";
        outcome.record.lines = record().lines;
        outcome.record.lines.erase(outcome.record.lines.begin(),
                                   outcome.record.lines.begin() + static_cast<std::ptrdiff_t>(from));
        for (const std::string &line : outcome.record.lines)
            if (line.starts_with("log "))
                told += line + "\n";
        for (std::string frame; !(frame = station->receive(0.0)).empty();)
            told += frame_told(frame) + "\n";
        outcome.told = lines_told(told);
        return outcome;
    }
    // Without order and number, which children that run at the same time change, and without what a clock shows or the
    // end of a child may or may not bring in time.
    static std::string lines_told(const std::string &text)
    {
        std::set<std::string> different;
        for (const std::string &line : lines(text))
            if (!pattern_matches("20*/*:*:*", line) && !pattern_matches("log err *waitpid failed*", line))
                different.insert(line);
        std::string told;
        for (const std::string &line : different)
            told += line + "\n";
        return told;
    }
    // What a reply says of success: the elements connect and code, or the first bytes.
    [[nodiscard]] std::string frame_told(const std::string &frame) const
    {
        if (daemon()->role != std::string("findhostd"))
            return frame.size() >= 78 ? testing::PrintToString(frame.substr(74, 8)) : "";
        std::string text;
        for (const char *mark : {"\x18\x04", "\x1f\x04"})
            if (const size_t at = frame.find(mark); at != frame.npos)
                text += testing::PrintToString(frame.substr(at, 6));
        return text;
    }
};

// The role ends by itself and says that something is wrong; put in order, the machine works as before.
struct Fault {
    std::string name; // "WHAT: FAULT"
    Step spoil{}, mend{};
    bool is_failure = true;
    RunOptions options{};
};

// Tries the faults and returns how many that were: with sanitizers, which take three times as long, each fourth.
int faults_try(const Row &row, Machine &box, const Outcome &good, const std::vector<Fault> &faults)
{
#ifdef SANDBOX_SANITIZED
    constexpr size_t kStep = 4;
#else
    constexpr size_t kStep = 1;
#endif
    int tried = 0;
    for (size_t at = 0; at < faults.size(); at += kStep, tried++) {
        const Fault &fault = faults[at];
        SCOPED_TRACE(fault.name);
        box.make();
        if (fault.spoil)
            fault.spoil(box);
        const Outcome spoilt = fault.spoil ? box.act() : box.act(fault.options);
        EXPECT_EQ(spoilt.signal, 0);
        const std::vector<std::string> silent = lines(row.silent);
        const bool may_be_silent = std::any_of(silent.begin(), silent.end(), [&](const std::string &pattern) {
            return pattern_matches(pattern, fault.name);
        });
        EXPECT_TRUE(!fault.is_failure || may_be_silent || spoilt.told != good.told) << "nobody is told";
        if (fault.mend)
            fault.mend(box);
        box.make();
        const Outcome after = box.act();
        EXPECT_EQ(after.exit_status, good.exit_status);
        EXPECT_EQ(after.told, good.told) << spoilt.record.text();
    }
    return tried;
}

// What a good run on a machine that is used comes to.
Outcome good_act(Machine &box)
{
    box.act();
    box.make();
    return box.act();
}

// The words of the record's lines that begin so.
std::set<std::string> recorded(const Record &record, const std::string &kind, size_t first, size_t count)
{
    std::set<std::string> found;
    for (const std::string &line : record.lines) {
        std::vector<std::string> parts = words(line);
        if (parts[0] != kind || parts.size() < first + count || (kind == "board" && !parts[1].starts_with("0x")))
            continue;
        if (parts[first].starts_with("socket:"))
            parts[first] = "socket:*";
        found.insert(parts[first] + (count > 1 ? " " + parts[first + 1] : ""));
    }
    return found;
}

// Machines.

// A system on a mirror that can bring the flash in line; asked for an update, it finds none.
void recoverable(Machine &box)
{
    install_machine(box);
    box.file(kConf, kModel + "rss_server_ssl=file:///feed\n");
    const std::string version = "majorversion=6\nminorversion=2\nbuildnumber=25600\n";
    box.file("/recover/etc.defaults/norvinfo.conf", kModel);
    box.file("/recover/etc.defaults/VERSION", version);
    box.file("/recover/.norv/patch/VERSION", version + "unique=norv_avoton_1817\n");
    box.file("/_disk/etc.defaults/VERSION", version);
    box.file("/feed", "<mUnique>other</mUnique>\n");
    box.programs("/recover/.norv/patch/updater /usr/bin/mount /usr/bin/umount");
    box.remove("/tmp/recover_fail");
    box.remove("/tmp/root_info.cache");
}

void button_flags(Machine &box)
{
    box.file(kConf, kModel);
    box.device("/dev/md0", 4ULL << 30);
    box.program("/usr/bin/mount");
    box.program("/usr/bin/umount");
    for (const char *mark : {"/_disk/.noroot", "/_disk/.system_crashed"})
        box.file(mark, "");
}

// An array with a volume.
void volume(Machine &box)
{
    std::vector<int32_t> info(18);
    info[1] = 2;
    info[4] = 1; // a mirror
    info[5] = 1024;
    info[7] = 1;
    for (const char *path : {"/dev/md0", "/dev/md1", "/dev/md2"}) {
        box.device(path, 3ULL << 20);
        const auto answer = [&](unsigned long request, const void *bytes, size_t size) {
            box.request({.device = path, .request = request, .bytes = {static_cast<const char *>(bytes), size}});
        };
        const std::string zeros(24, '\0');
        answer(0x80480911, info.data(), 72);
        answer(0x80180960, zeros.data(), 24);
        answer(0x80040961, zeros.data(), 4);
        const std::string member = std::string("/sys/block/") + (path + 5) + "/md/dev-sda1/";
        box.file(member + "state", "in_sync\n");
        box.file(member + "slot", "0\n");
    }
    box.file("/proc/swaps", "Filename\tType\tSize\tUsed\tPriority\n/dev/md1 partition 1 0 -1\n");
    box.file("/tmp/norv_swap_status.json", R"({"state":"Ready"})");
    box.directory("/run/space/lock");
    box.program("/sbin/pvs", {{.output = "  /dev/md2:vg1:lv:\n"}});
    box.program("/sbin/mdadm", {{.args = "-E *", .output = "Array UUID : here\n"}});
}

// One whose first disk is a cache.
void cache_disk(Machine &box)
{
    volume(box);
    std::string image(512000, '\0');
    image += "NORVESSA_SUPER_BLOCK" + std::string(44, '\0') + std::string("\0\0\0\5\0\0\0\x0c", 8) +
             std::string(900, '\0') + std::string("\0\0\0\4", 4) + "cache" + std::string(251 + 396, '\0') + "NORV_06";
    image.resize(512000 + 4096);
    box.file("/dev/sda", image);
    box.file("/sys/block/sda/queue/rotational", "0\n");
    box.file("/sys/block/sda/sda1/start", "2048\n");
    box.file("/sys/block/sda/sda1/size", "4980480\n");
}

// Two disks that tell their model.
void disks_told(Machine &box)
{
    std::string inquiry(96, '\0');
    inquiry[4] = static_cast<char>(inquiry.size() - 5);
    inquiry.replace(8, 24, std::string(24, ' ')).replace(8, 4, "NORV").replace(16, 4, "GOOD");
    for (const char *path : {"/dev/sda", "/dev/sdb"})
        for (const std::string &bytes : {inquiry, std::string("\0\x80\0\x08SERIAL 1", 12)})
            box.request({.device = path,
                         .request = SG_IO,
                         .bytes = bytes,
                         .at = offsetof(sg_io_hdr, dxferp),
                         .is_pointer = true,
                         .times = 1});
    box.file("/var/lib/disk-compatibility/host_rule.db",
             R"({"format": 1, "default": {"selectable": true}, "rules": []})");
}

// The same where one more disk is on the PCI bus.
void nvme_told(Machine &box)
{
    disks_told(box);
    box.file(kConf, "unique=norv_x86_nv4\nsupportnvme=yes\nmaxdisks=4\ninternalportcfg=0xf\nusbportcfg=0x10000\n");
    const std::string disk = "/sys/devices/pci0000:00/0000:00:01.1/0000:05:00.0/nvme/nvme0/nvme0n1";
    box.directory(disk);
    if (!box.exists("/sys/block/nvme0n1"))
        box.symlink("/sys/block/nvme0n1", disk);
    box.device("/dev/nvme0n1", 1ULL << 40);
    std::string identity(4096, '\0');
    identity.replace(4, 68, std::string(68, ' ')).replace(4, 1, "S").replace(24, 6, "NORV N");
    box.request({.device = "/dev/nvme0n1",
                 .request = NVME_IOCTL_ADMIN_CMD,
                 .bytes = identity,
                 .at = offsetof(nvme_admin_cmd, addr),
                 .is_pointer = true,
                 .times = 1});
}

void flash_device(Machine &box)
{
    box.device("/dev/sdq", 1 << 20);
    box.request({.device = "/dev/sdq", .request = SG_IO});
}

const Step controller = [](Machine &box) { controller_add(box, {std::string("\0\x11\x0a\0\0\x07", 6)}); };
const Step wake_on_lan = [](Machine &box) { box.request({.device = "socket:*", .request = SIOCETHTOOL}); };

void low_ports(Machine &box)
{
    box.file("/etc.defaults/modules.conf", "module_ixgbe_args_broadwell=x\n");
    box.file("/lib/modules/ixgbe.ko", "");
}

// Ports that get other numbers, as far as the role can see.
void port_order(Machine &box)
{
    box.file(kConf, "supportraid=no\nmaxlanport=2\nnetif_seq=1 0\n");
    box.file("/proc/sys/kernel/norv_internal_netif_num", "2\n");
    for (const std::string name : {"eth0", "peer0"}) {
        const std::string port = name == "eth0" ? "0000:00:01.0" : "0000:00:02.0";
        const std::string bus = "/sys/devices/pci0000:00/" + port, device = bus + "/0000:03:00.0";
        box.file("/sys/class/net/" + name + "/flags", "0x1002\n");
        box.directory(device);
        if (!box.exists("/sys/bus/pci/devices/" + port)) {
            box.symlink("/sys/bus/pci/devices/" + port, bus);
            box.symlink("/sys/class/net/" + name + "/device", device);
        }
    }
    box.request({.device = "socket:*", .request = SIOCSIFNAME});
}

// The board keeps a schedule, and a file does, too.
void schedule(Machine &box)
{
    box.host_program("/bin/cp");
    box.remove("/etc/power_sched.conf");
}

// Of daemons.

std::string mac_element(const Machine &box)
{
    const std::string mac = box_mac(box, "eth0");
    char text[18];
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0] & 0xff, mac[1] & 0xff, mac[2] & 0xff,
             mac[3] & 0xff, mac[4] & 0xff, mac[5] & 0xff);
    return element(0x29, text);
}

void discovery(Machine &box)
{
    box.programs("/bin/ping /etc/norvgrinst.sh /sbin/ifconfig /sbin/route /sbin/udhcpc /usr/bin/killall /bin/grep "
                 "/usr/sbin/inetd");
    box.program("/bin/ps", {{.output = "  70 root 1 S /sbin/udhcpc -i eth0\n"}});
    box.call({.call = "kill", .error = ESRCH});
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth0", "BOOTPROTO=static\nIPADDR=10.0.0.4\nNETMASK=255.255.255.0\n");
    box.file("/etc/sysconfig/network", "HOSTNAME=old\n");
    box.file("/etc/hosts", "");
    box.file("/etc/resolv.conf", "");
    box.directory("/etc/dhcpc");
    box.leaves({"/.tmpcfg", "process findhostd"});
}

void query(Machine &box)
{
    box.send(9999, plain(base(11)));
    box.send(9999, plain(base(1) + mac_element(box)));
}

const Step address_set = [](Machine &box) {
    box.send(9999,
             plain(base(3) + number(0x20, 0) + number(0x22, 0x0500000a) + number(0x23, 0x00ffffff) +
                   element(0x21, "nas") + number(0x24, 0x0100000a) + number(0x25, 0x0200000a) + mac_element(box)));
};
const Step dhcp_set = [](Machine &box) {
    box.send(9999, plain(base(3) + number(0x20, 1) + element(0x21, "") + mac_element(box)));
};
const Step shell_open = [](Machine &box) { box.send(9999, plain(base(4) + mac_element(box))); };

void factory(Machine &box)
{
    box.remove("/sys/block");
    box.file("/proc/sys/kernel/norv_serial", "1234567890123\n");
    box.file("/etc/norvinfo.conf", "unique=\"norv_a_1\"\n");
    box.programs("/bin/killall /bin/touch /bin/first /bin/second /bin/mantool");
    for (const char *path : {"/bin/cat", "/bin/rm", "/bin/mkdir"})
        box.host_program(path);
    box.file("/tmp/left", "");
    for (const char *path : {"/tmp/exporting_mantool", "/tmp/bootmnt", "/var/log/mantool_export"})
        box.remove(path);
    box.leaves({"process manutild", "/tmp/bootmnt*"});
}

void manutild_send(Machine &box, uint16_t event, const std::string &payload = "")
{
    box.send(1122, UdpdDatagram{.event = event, .payload = payload}.bytes());
}

const Step group_action = [](Machine &box) { manutild_send(box, kManGroupAction, "first,second"); };

void operation(Machine &box)
{
    manutild_send(box, kManGroupOperation, "first");
    manutild_send(box, kManTestFlagGet);
    manutild_send(box, kManMemTestProgress);
}

void final_check(Machine &box)
{
    manutild_send(box, kManMacSet, std::string("\x02\x00\x00\x0a\x0b\x0c", 6));
    manutild_send(box, kManCustomSnSet, "C1");
    manutild_send(box, kManFinalCheck, "norv_a_1,42");
}

void hardware(Machine &box)
{
    box.programs("/usr/norv/sbin/backup_junior_log.sh /sbin/poweroff /sbin/route /sbin/udhcpc /sbin/ifconfig");
    box.file(kConf, "supportraid=no\nmaxdisks=2\nsupport_wol=yes\nbuzzeroffen=0x200\nbuzzeroffen_r2=0x0\n");
    box.request({.device = "socket:*", .request = SIOCETHTOOL});
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth0", "BOOTPROTO=dhcp\n");
    box.directory("/etc/dhcpc");
    box.leaves({"process ncemd", "/tmp/.not.dualhead"});
}

// The controller wants a restart, and goes on wanting it.
void out_of_band(Machine &box)
{
    hardware(box);
    box.program("/sbin/reboot");
    box.file(kConf, "supportraid=no\nmaxdisks=2\nsupport_wol=no\nsupport_oob_ctl=yes\n");
    controller_add(box, {{'\0', '\2'}});
}

const Step pass = [](Machine &box) { box.idle_wait(box.record().count(box.daemon()->idle)); };

void event_raise(Machine &box, int event)
{
    box.board([=](struct board &state) { EXPECT_EQ(board_event_raise(&state, event), 0); });
    box.idle_wait(box.record().count(box.daemon()->idle));
}

const Step power_off = [](Machine &box) { event_raise(box, 0x223); };

void link_change(Machine &box)
{
    for (const bool is_up : {false, true}) {
        EXPECT_TRUE(box.links.set("peer0", is_up) && box.links.settle("eth0", is_up));
        box.idle_wait(box.record().count(box.daemon()->idle));
    }
}

void buttons(Machine &box)
{
    for (const int event : {0x200, 0x240, 0x201})
        event_raise(box, event);
    for (const char *button : {"power", "reset"}) {
        box.board_scenario(std::string("press ") + button + "\n");
        box.idle_wait(box.record().count(box.daemon()->idle));
    }
}

const RunOptions kRecover = cgi_request("", "utctime=1600000000");

// No answer about volumes or partitions is as good as none of them; clearing goes on with what can be cleared; of what
// is unmounted, synced, ended or switched off nothing depends on the result.
constexpr char kNoPartitions[] = "/sbin/sfdisk: *", kCopy[] = "/bin/umount: *\n/bin/sync: *";
const Row kProgramRows[] = {
    {"raidtool initsys"},
    {"raidtool newvol"},
    {"raidtool destroy 2", "/sbin/*remove: killed\n/sbin/pvs: *\n/bin/mkdir: *", volume},
    {"norvcleanpartition", "/bin/dd: *\n/bin/sh: *"},
    {"norv_swap_ctl --start"},
    {"norv_swap_ctl --on /dev/sda2"},
    {"norv_swap_ctl --stop", "", volume},
    {"start_telnet.cgi"},
    {"clean_button_flags.cgi", "/usr/bin/umount: *", button_flags},
    {"norvcheckpartition sda", kNoPartitions},
    {"norvssdcache --check", "", cache_disk},
    {"norvupgrade --check-system", kNoPartitions, recoverable},
    {"norvupgrade --check-migrate", "/usr/bin/umount: *", recoverable},
    {"norvupgrade --recover", kCopy, recoverable},
    {"recover.cgi", kCopy, recoverable, nullptr, kRecover},
    {"findhostd", "/sbin/sfdisk: *\n/etc/norvgrinst.sh: *", discovery, query},
    {"findhostd", "/sbin/sfdisk: *\n/bin/ps: *\n/bin/grep: *\n/usr/bin/killall: *", discovery, address_set},
    {"findhostd", "/sbin/sfdisk: *\n/usr/bin/killall: *", discovery, dhcp_set},
    {"findhostd", "/sbin/sfdisk: *\n/usr/sbin/inetd: *", discovery, shell_open},
    {"manutild", "/bin/killall: *\n/bin/rm: *\n/bin/touch: *", factory, group_action},
    {"manutild", "/bin/rm: *", factory, operation},
    {"manutild", "/bin/killall: *\n/bin/rm: *\n/bin/sh: *", factory, final_check},
    {"ncemd", "*", hardware, power_off}, // the machine goes off all the same
    {"ncemd", "", hardware, link_change},
    {"ncemd", "*", out_of_band, pass},
    {"mantool -auto_poweron_enable 0x3E081E", "", schedule},
    {"mantool -custom_sn_set C1", "", factory},
};

// A machine without an address says nothing of one; lamps and buzzers are not looked at.
constexpr char kNoDriver[] = "* 0x80180960: EINVAL"; // then the kernel's files tell
constexpr char kNoAddress[] = "socket:* SIOCGIFADDR: *\nsocket:* SIOCGIFNETMASK: *",
               kNoAlarm[] = "event_get: *\nevent_source: *\nstatus_pair: *\nsocket:*",
               kNoLamps[] = "socket:* SIOCGIFADDR: *\ncontrol: *\nboard: none";
const Row kRequestRows[] = {
    {"mantool -mw 0x10 0xff"},
    {"mantool -md 0x10"},
    {"mantool -gpio_write 10 1"},
    {"mantool -gpio_read 10"},
    {"mantool -uart2 w 2"},
    {"mantool -button_test enable"},
    {"mantool -rtc_get"},
    {"mantool -temperature"},
    {"mantool -cpu_temp"},
    {"mantool -fan_status_get"},
    {"mantool -auto_poweron_disable"},
    {"mantool -auto_poweron_get 1"},
    {"mantool -set_pwm V05"},
    {"mantool -mem_write 0xfed80000 0x1"},
    {"mantool -mem_read 0xfed80000"},
    {"mantool -led_mask_on"},
    {"mantool -usb3_dwng /dev/sdq", "", flash_device},
    {"mantool -wol_enable eth0", "", wake_on_lan},
    {"norvhwctrl -set_stat_led run"},
    {"norvhwctrl -set_led power_green_on"},
    {"norv_led_mask_on"},
    {"norv_microp_control MICROP_VERSION_REPORT"},
    {"norv_microp_control MICROP_LOG_ON"},
    {"norv_oob_ipv4_get", "", controller},
    {"norvdiskport -invalid_disk_list", "", disks_told},
    {"norvdiskport -invalid_disk_list", "", nvme_told},
    {"norvnetseqadj", "", port_order},
    {"norvlanstatus", "gpio_write: *", low_ports},
    {"raidtool status 2", kNoDriver, volume},
    {"raidtool destroy 2", kNoDriver, volume},
    {"norv_swap_ctl --stop", kNoDriver, volume},
    {"norvcheckpartition", "", volume},
    {"norvupgrade --check-system", "", recoverable},
    {"recover.cgi", "", recoverable, nullptr, kRecover},
    {"findhostd", kNoAddress, discovery, query},
    {"findhostd", kNoAddress, discovery, address_set},
    {"manutild", kNoLamps, factory, group_action},
    {"manutild", kNoLamps, factory, final_check},
    {"ncemd", kNoAlarm, hardware, power_off},
    {"ncemd", kNoAlarm, hardware, buttons},
    {"ncemd", kNoAlarm, out_of_band, pass},
};

TEST(RoleFaults, EachProgramFails)
{
    int points = 0;
    for (const Row &row : kProgramRows) {
        SCOPED_TRACE(row.command);
        Machine box(row);
        const Outcome good = good_act(box);
        std::vector<Fault> faults;
        for (const std::string &path : recorded(good.record, "run", 1, 1))
            for (const ProgramFault &fault : kProgramFaults) {
                const Step spoil = [path, &fault](Machine &machine) {
                    if (!fault.row)
                        return machine.remove(path);
                    machine.program_answer([path, row = fault.row](const ProgramCall &call) {
                        return call.path == path ? row : std::nullopt;
                    });
                };
                const Step mend = [](Machine &machine) {
                    machine.program_answer([](const ProgramCall &) { return std::optional<ProgramRow>(); });
                };
                faults.push_back({path + ": " + fault.name, spoil, mend, fault.is_failure});
            }
        EXPECT_FALSE(faults.empty()) << good.record.text();
        points += faults_try(row, box, good, faults);
    }
    points_tried(points);
}

TEST(RoleFaults, EachRequestFails)
{
    static constexpr std::pair<const char *, int> kErrors[] = {
        {"EIO", EIO}, {"EINVAL", EINVAL}, {"EINTR", EINTR}, {"ENODEV", ENODEV}};
    int points = 0;
    for (const Row &row : kRequestRows) {
        SCOPED_TRACE(row.command);
        Machine box(row);
        box.call({.call = "ioctl", .args = "none", .real = true}); // those of sockets are told from now on
        const Outcome good = good_act(box);
        std::vector<Fault> faults;
        const std::set<std::string> asked = recorded(good.record, "board", 2, 1);
        const auto add = [&](const std::string &name, const Step &spoil, const Step &mend) {
            faults.push_back({.name = name, .spoil = spoil, .mend = mend});
        };
        // A call fails, or is a true one again.
        const auto answer = [](const char *name, const std::string &args, int error) -> Step {
            return [=](Machine &of) { of.call({.call = name, .args = args, .error = error, .real = error == 0}); };
        };
        const auto board = [](const std::string &text) -> Step {
            return [=](Machine &of) { of.board_scenario(text + "\n"); };
        };
        for (const auto &[name, error] : kErrors) {
            for (const std::string &request : asked) {
                // A daemon that cannot take an event asks for it at once again, without end.
                const std::string times = request == "event_get" ? " 3" : "";
                add(request + ": " + name, board("fail " + request + " " + name + times),
                    board("fail " + request + " none"));
            }
            for (const std::string &request : recorded(good.record, "ioctl", 1, 2))
                add(request + ": " + name, answer("ioctl", request, error), answer("ioctl", request, 0));
        }
        if (!asked.empty() && (row.ask == nullptr || !box.is_ncemd())) // which has a test of its own for that
            add("board: none", answer("open", "/dev/norvbios *", ENXIO), answer("open", "/dev/norvbios *", 0));
        EXPECT_FALSE(faults.empty()) << good.record.text();
        points += faults_try(row, box, good, faults);
    }
    points_tried(points);
}

// Whatever a role cannot write, open or keep: it ends by itself, and nothing stays that keeps the next from its work.
TEST(RoleFaults, TooLittleOfEverything)
{
    const std::pair<const char *, RunOptions> kSettings[] = {
        {"no file may grow", {.limits = {{RLIMIT_FSIZE, 0}}}},
        {"small files", {.limits = {{RLIMIT_FSIZE, 8}}}},
        {"output full", {.output = Output::kFull}},
        {"output closed", {.output = Output::kBroken}},
        {"descriptors", {.limits = {{RLIMIT_NOFILE, 7}}}},
#ifndef SANDBOX_SANITIZED // which needs terabytes
        {"memory", {.limits = {{RLIMIT_AS, 12 << 20}}}},
#endif
    };
    int points = 0;
    for (const Row &row : kProgramRows) {
        SCOPED_TRACE(row.command);
        Machine box(row);
        const Outcome good = good_act(box);
        std::vector<Fault> faults;
        for (const auto &[name, setting] : kSettings) {
            if (row.ask != nullptr && std::string(name) == "descriptors")
                continue; // nobody could see it serve
            Fault fault = {.name = std::string("setting: ") + name, .is_failure = false, .options = row.options};
            fault.options.limits = setting.limits;
            fault.options.output = setting.output;
            faults.push_back(std::move(fault));
        }
        points += faults_try(row, box, good, faults);
    }
    points_tried(points);
}

const Row kServing[] = {
    {"ncemd", "", hardware, power_off}, {"findhostd", "", discovery, shell_open}, {"manutild", "", factory, operation}};
constexpr size_t kPoints = 20;

// A daemon that is told to end at any moment of its start ends, and the next one starts as ever.
TEST(RoleFaults, DaemonsEndAtAnyMoment)
{
    int points = 0;
    for (const Row &row : kServing) {
        SCOPED_TRACE(row.command);
        Machine box(row);
        const auto launch_and_end = [&](size_t lines, int number) {
            const size_t before = box.record().lines.size();
            const int idle = box.record().count(box.daemon()->idle);
            Process process = box.start({row.command}, {.seconds = 2 * kLimit_s});
            box.wait_until([&] {
                const Record record = box.record();
                return lines > 0 ? record.lines.size() >= before + lines : record.count(box.daemon()->idle) > idle;
            });
            const size_t took = box.record().lines.size() - before;
            box.wait_until([&] {
                if (process.running())
                    box.signal(process.pid(), number);
                box.daemon_signal(number);
                return !process.running() && box.processes().empty();
            });
            process.wait();
            return took;
        };
        const size_t whole = launch_and_end(0, SIGTERM);
        for (size_t point = 0; point < kPoints && !HasFailure(); point++, points++) {
            SCOPED_TRACE("point " + std::to_string(point));
            launch_and_end(1 + whole * point / kPoints, point % 2 == 0 ? SIGTERM : SIGKILL);
        }
        launch_and_end(0, SIGTERM);
    }
    points_tried(points);
}

// Signals come while a daemon answers, or waits for what it has started: it ends or goes on, and nothing of it stays.
TEST(RoleFaults, DaemonsAreSignalledWhileTheyServe)
{
    static constexpr int kSignals[] = {SIGTERM, SIGCHLD, SIGHUP, SIGPIPE, SIGINT, SIGUSR1, SIGKILL};
    int points = 0;
    for (const Row &row : kServing) {
        SCOPED_TRACE(row.command);
        Machine box(row);
        box.program_answer([](const ProgramCall &call) {
            return call.path == "/bin/sh" || call.path == "/bin/cat" ? std::nullopt
                                                                     : std::optional(ProgramRow{.delay_ms = 20});
        });
        const Daemon &daemon = *box.daemon();
        size_t whole = 0; // lines of the record that one request brings
        int runs_each = 0;
        for (size_t point = 0; point < kPoints && !HasFailure();) {
            box.make(); // the one before may have been killed amid its work
            Process process = box.launch(row.options);
            pid_t pid = 0;
            for (const Sandbox::Running &one : box.processes())
                if (one.name == row.command && (pid == 0 || one.pid < pid))
                    pid = one.pid;
            if (whole == 0) {
                const Record before = box.record();
                row.ask(box);
                whole = box.record().lines.size() - before.lines.size();
                runs_each = box.record().count("run *") - before.count("run *");
            }
            box.waits = false;
            for (bool goes_on = true; goes_on && point < kPoints; point++, points++) {
                const int number = kSignals[point % std::size(kSignals)];
                SCOPED_TRACE("point " + std::to_string(point) + ", signal " + std::to_string(number));
                const size_t lines = box.record().lines.size() + 1 + whole * point / kPoints;
                const int idle = box.record().count(daemon.idle);
                const int runs = box.record().count("run *");
                row.ask(box);
                box.wait_until(
                    [&] { return box.record().lines.size() >= lines || box.record().count(daemon.idle) > idle + 1; });
                box.signal(pid, number);
                const auto has = [&](const std::vector<int> &of) {
                    return std::find(of.begin(), of.end(), number) != of.end();
                };
                goes_on = number != SIGKILL && !has(daemon.ends_by) && !has(daemon.ends_well_by);
                if (goes_on) { // and answers both
                    row.ask(box);
                    EXPECT_TRUE(box.wait_until([&] { return box.record().count("run *") >= runs + 2 * runs_each; }));
                    continue;
                }
                int status = -1;
                box.wait_until([&] {
                    if (number == SIGINT) // which system(3) ignores while it waits
                        box.signal(pid, number);
                    return box.wait_for_end(pid, 0.0, &status);
                });
                EXPECT_EQ(status, has(daemon.ends_well_by) ? 0 : number);
                EXPECT_TRUE(box.wait_until([&] { return box.processes().empty(); })); // what it started ends by itself
                EXPECT_EQ(box.exists("/var/run/findhostd.pid"),
                          daemon.role == std::string("findhostd") && !has(daemon.ends_well_by));
            }
            box.all_end(SIGTERM);
            process.wait();
            box.waits = true;
        }
    }
    points_tried(points);
}

} // namespace

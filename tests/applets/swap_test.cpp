#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <sys/sysinfo.h>
#include <vector>

#include "tests/support/rows.h"

namespace
{

using Lines = std::vector<std::string>;

constexpr char kConf[] = "/etc.defaults/norvinfo.conf", kFlag[] = "/proc/sys/kernel/norv_swap_flag";
constexpr char kLock[] = "/tmp/norv_swap_ctl.lock", kState[] = "/tmp/norv_swap_status.json";
constexpr char kOn[] = R"({"state":"Ready"})", kOff[] = R"({"state":"None"})";

// What the kernel lists, with these devices on.
std::string swaps(const Lines &devices = {})
{
    std::string text = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";
    for (const std::string &device : devices)
        text += device + "                               partition\t2097148\t\t0\t\t-2\n";
    return text;
}

struct SwapBox : Sandbox {
    explicit SwapBox(const std::string &conf = "")
    {
        file(kConf, "internalportcfg=\"0xf\"\nusbportcfg=\"0x10\"\nmaxdisks=\"4\"\n" + conf);
        file("/proc/swaps", swaps());
        file("/proc/cpuinfo", "processor : 0\n");
        file(kFlag, "0");
        program("/sbin/mkswap", {{.args = "/dev/bad", .exit_status = 3}, {}});
        call({.call = "write", .args = std::string(kFlag) + " *", .real = true});
        leaves({kLock, kState, "/dev/md1", "lock *", "/tmp/.not.dualhead", "/run/space*", "semaphore *"});
    }
    // The next program's exit status, and the log lines it must leave besides others.
    void expect(const std::string &options, int exit_status, const Lines &logged = {})
    {
        SCOPED_TRACE(options);
        last = run(words(options, "norv_swap_ctl"));
        EXPECT_EQ(last.exit_status, exit_status);
        EXPECT_EQ(last.out, "");
        EXPECT_TRUE(last.record.in_order(logged));
        EXPECT_EQ(read_file(kFlag), "0");
    }
    // Programs and calls of the last run, but for the switch.
    [[nodiscard]] std::string done() const
    {
        std::string text;
        for (const std::string &line : last.record.lines)
            if (line.starts_with("run ") || line.starts_with("swap") || line.starts_with("mknod"))
                text += line + "\n";
        return text;
    }
    Result last;
};

TEST(Swap, ByHand)
{
    SwapBox box;
    const std::string flag = std::string("write ") + kFlag + " 1";
    box.call({.call = "swapon", .args = "/dev/busy *", .error = EBUSY});
    box.call({.call = "swapoff", .args = "/dev/busy", .error = ENOMEM});
    box.expect("--on /dev/sdx", 0);
    EXPECT_TRUE(box.last.record.in_order({"run /sbin/mkswap /dev/sdx", flag, "swapon /dev/sdx 0x0", flag}));
    box.expect("-f /dev/sdx", 0);
    EXPECT_TRUE(box.last.record.in_order({flag, "swapoff /dev/sdx", flag}));
    box.expect("--on /dev/bad", 255, {"log err swap_on.cpp:* Failed to mkswap /dev/bad, ret = 3"});
    EXPECT_EQ(box.done(), "run /sbin/mkswap /dev/bad\n");
    for (const char *option : {"--on", "--off"}) {
        box.expect(option + std::string(" /dev/busy"), 255);
        EXPECT_TRUE(box.last.record.in_order({flag, "swap* /dev/busy *", flag}));
    }
    EXPECT_FALSE(box.exists(kLock) || box.exists(kState));

    Sandbox bare; // a kernel without the switch, and one that refuses it
    bare.program("/sbin/mkswap");
    for (const char *trouble : {"open", "write"}) {
        const Result result = bare.run({"norv_swap_ctl", "--on", "/dev/sdx"});
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_EQ(result.record.count("swapon *"), 0);
        EXPECT_EQ(result.record.count(std::string("log err swap_on.cpp:* *(*): failed to ") + trouble + " " + kFlag),
                  2);
        bare.file(kFlag, "0");
        bare.call({.call = "write", .args = std::string(kFlag) + " *", .error = EIO});
    }
}

TEST(Swap, WhichDevice)
{
    const struct {
        const char *conf, *device;
    } kCases[] = {
        {"", "/dev/sda2"},
        {"supportportmappingv2=\"YES\"\n", "/dev/sata1p2"},
        {"ali_nos=\"yes\"\nsupportportmappingv2=\"yes\"\n", "/dev/sda6"},
        {"ali_nos=\"YES\"\n", "/dev/sda2"},
        {"ali_nos=\"yes\"\nsupportraid=\"Yes\"\n", "/dev/md1"},
    };
    for (const auto &[conf, device] : kCases) {
        SCOPED_TRACE(conf);
        SwapBox box(conf);
        const std::string name = device;
        box.device(name, 1 << 20);
        box.request({.device = "/dev/md1", .request = 0x80480911, .bytes = std::string(72, '\0')});
        box.expect("--start", 0);
        EXPECT_EQ(box.done(), "run /sbin/mkswap " + name + "\nswapon " + name + " 0x0\n");
        EXPECT_EQ(box.read_file(kState), kOn);
    }
}

TEST(Swap, StatesOnOneDisk)
{
    SwapBox box;
    box.device("/dev/sda2", 1 << 20);
    box.expect("--stop", 0); // nothing to do
    EXPECT_EQ(box.read_file(kState), kOff);
    box.call({.call = "swapon", .error = EINVAL, .times = 1});
    box.expect("--start", 255);
    EXPECT_EQ(box.read_file(kState), kOff);
    box.expect("--start", 0);
    box.expect("--start", 0);
    EXPECT_EQ(box.done(), "");
    EXPECT_EQ(box.read_file(kState), kOn);

    box.file("/proc/swaps", swaps({"/dev/sdb2", "/dev/sda2"}));
    box.call({.call = "swapoff", .error = ENOMEM, .times = 1});
    box.expect("--stop", 255);
    EXPECT_EQ(box.read_file(kState), kOn);
    box.expect("--stop", 0);
    EXPECT_EQ(box.done(), "swapoff /dev/sda2\n");
    EXPECT_EQ(box.read_file(kState), kOff);
    box.expect("--stop", 0);
    box.expect("--start", 0); // on already
    EXPECT_EQ(box.done(), "");
    box.remove("/dev/sda2");
    box.file(kState, kOff);
    box.file("/proc/swaps", swaps());
    box.expect("--start", 0); // no device
    EXPECT_EQ(box.done(), "");
    EXPECT_EQ(box.read_file(kState), kOn);
}

TEST(Swap, StateFileAndLock)
{
    const std::string unread = std::string("log err swap_json.cpp:* *(*): Fail to read json file ") + kState + "!";
    const std::string read_failed = "log err *:* Failed to call NLIBCSwapJsonFileRead";
    const struct {
        const char *state;
        Lines start, stop;
    } kCases[] = {
        {"{\"state\":", {unread, read_failed}, {unread, read_failed}},
        {"[]", {unread, read_failed}, {unread, read_failed}},
        {R"({"state":"Busy"})",
         {"log err *(*): Swap state(Busy) is not None!", "log err *:* Failed to call NLIBCSwapStateCheck"},
         {"log err *(*): Swap state(Busy) is not Ready!"}},
        {R"({"state":7})", {"log err *(*): Swap state() is not None!"}, {"log err *(*): Swap state() is not Ready!"}},
    };
    SwapBox box;
    box.device("/dev/sda2", 1 << 20);
    for (const auto &[state, start, stop] : kCases) {
        box.file(kState, state);
        box.expect("--start", 255, start);
        box.expect("--stop", 255, stop);
        EXPECT_EQ(box.read_file(kState), state);
        EXPECT_EQ(box.done(), "");
    }
    box.remove(kState);
    box.directory(kState);
    box.expect("--start", 255, {unread});
    box.remove(kState);
    box.compress_sleeps();
    box.call({.call = "flock", .args = std::string(kLock) + " *", .error = EWOULDBLOCK});
    box.expect(
        "--start", 255,
        {std::string("log err *:* Failed to lock ") + kLock, "log err *:* Failed to call NLIBCSwapJsonFileLock"});
    EXPECT_NEAR(box.last.record.count("usleep 50000"), 1200, 1);
    EXPECT_FALSE(box.exists(kState));
}

// The answers of the array driver: one mirror, number 1, that has what it needs.
void array_appear(Sandbox &box)
{
    box.device("/dev/md1", 1 << 20);
    std::string info(72, '\0');
    info[12] = 1; // level
    box.request({.device = "/dev/md1", .request = 0x80480911, .bytes = info});
    box.request({.device = "/dev/md1", .request = 0x80040961, .bytes = std::string(4, '\0')});
    box.request({.device = "/dev/md1", .request = 0x80180960, .bytes = std::string(24, '\0')});
}

TEST(Swap, ArrayIsAssembledAndDismantled)
{
    SwapBox box("supportraid=\"yes\"\n");
    for (const char *disk : {"sdb", "sda", "sdc"})
        box.directory(std::string("/sys/block/") + disk);
    const std::string assemble = "run /sbin/mdadm -A /dev/md1 -u 1:2:3:4 --run /dev/sda2 /dev/sdb2 /dev/sdc2";
    box.program("/sbin/mdadm",
                {{.args = "-E /dev/sdb2", .output = "  Version : 0.90.00\n     UUID : 1:2:3:4\n  Raid Level : raid1\n"},
                 {.args = "-E *", .exit_status = 1},
                 {.args = "-A *", .error = "no\n", .exit_status = 1, .times = 1},
                 {.args = "-A *", .effect = [&box](const ProgramCall &) { array_appear(box); }},
                 {}});
    box.expect("--start", 255, {assemble, "log err *:* Failed to assemble /dev/md1, ret = 256"});
    EXPECT_EQ(box.read_file(kState), kOff);
    box.expect("--start", 0, {assemble, "run /sbin/mkswap /dev/md1", "swapon /dev/md1 0x0"});
    EXPECT_EQ(box.last.record.count("run /sbin/mdadm -A *"), 1);
    EXPECT_EQ(box.read_file(kState), kOn);

    box.file("/proc/swaps", swaps({"/dev/md1"}));
    box.expect("--stop", 0, {"swapoff /dev/md1", "run /sbin/mdadm -S /dev/md1"});
    EXPECT_EQ(box.read_file(kState), kOff);

    box.file("/proc/swaps", swaps());
    box.expect("--start", 0); // still there: not assembled
    EXPECT_EQ(box.done(), "run /sbin/mkswap /dev/md1\nswapon /dev/md1 0x0\n");

    SwapBox none("supportraid=\"yes\"\n");
    none.expect("--start", 0); // no disk, no array
    EXPECT_EQ(none.done() + none.read_file(kState), kOn);

    SwapBox sick("supportraid=\"yes\"\n");
    sick.request({.device = "/dev/md1", .request = 0x80040961, .error = EIO});
    array_appear(sick);
    sick.file(kState, kOn);
    sick.expect("--stop", 255, {"log err swap_stop.cpp:* Fail to get RAID info of [/dev/md1]"});
    EXPECT_EQ(sick.read_file(kState), kOn);
}

TEST(Swap, Zram)
{
    struct sysinfo memory = {};
    memory.totalram = 8UL << 18;
    memory.mem_unit = 4096;
    SwapBox box("support_zram=\"yes\"\n");
    box.file("/etc/norvinfo.conf", "enable_zram=\"no\"\n");
    box.file("/proc/cpuinfo", "processor : 0\ncpu cores : 4\n");
    box.file("/sys/block/zram0/disksize", "0\n");
    box.file("/sys/block/zram1/disksize", "4096\n");
    box.file("/sys/block/zram3/disksize", "0\n");
    box.device("/dev/zram0", 0);
    box.device("/dev/zram1", 0);
    box.call({.call = "sysinfo", .bytes = std::string(reinterpret_cast<const char *>(&memory), sizeof(memory))});
    box.call({.call = "mknod"});
    box.expect("--start", 0);
    EXPECT_EQ(box.done(), "");
    EXPECT_EQ(box.read_file("/sys/block/zram0/disksize"), "0\n");

    box.file("/etc/norvinfo.conf", "enable_zram=\"yes\"\n");
    box.file("/proc/swaps", swaps({"/dev/zram1"}));
    box.expect("--start", 0); // Ready, and still zram is started
    EXPECT_EQ(box.done(), "run /sbin/mkswap /dev/zram0\nswapon /dev/zram0 0x8001\n"
                          "mknod /dev/zram3 60600 0xfc03\nrun /sbin/mkswap /dev/zram3\nswapon /dev/zram3 0x8001\n");
    EXPECT_EQ(box.read_file("/sys/block/zram0/disksize"), std::to_string(1229L << 20));
    EXPECT_EQ(box.read_file("/sys/block/zram1/disksize"), "4096\n");

    box.file("/proc/swaps", swaps({"/dev/zram0", "/dev/zram1", "/dev/zram2"}));
    box.call({.call = "swapoff", .args = "/dev/zram0", .error = ENOMEM});
    box.expect("--stop", 0);
    EXPECT_EQ(box.done(), "swapoff /dev/zram0 = ENOMEM\nswapoff /dev/zram1\n");
    box.expect("--stop", 0); // None, and zram is stopped all the same
    EXPECT_EQ(box.last.record.count("swapoff *"), 2);

    box.remove("/proc/cpuinfo");
    box.expect("--start", 255, {"log err zram_cores_get.cpp:* *(*): Failed to open /proc/cpuinfo"});
    EXPECT_EQ(box.read_file(kState), kOn);
}

} // namespace

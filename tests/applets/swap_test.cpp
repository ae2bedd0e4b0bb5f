#include <cerrno>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <sys/sysinfo.h>
#include <vector>

#include "tests/support/rows.h"

namespace
{

constexpr char kConf[] = "/etc.defaults/norvinfo.conf", kFlag[] = "/proc/sys/kernel/norv_swap_flag";
constexpr char kLock[] = "/tmp/norv_swap_ctl.lock", kState[] = "/tmp/norv_swap_status.json";
constexpr char kOn[] = R"({"state":"Ready"})", kOff[] = R"({"state":"None"})", kNoFile[] = "";

// What the kernel lists, with these devices on.
Change swaps(const std::string &devices = "")
{
    std::string text = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";
    for (const std::string &device : words(devices))
        text += device + "                               partition\t2097148\t\t0\t\t-2\n";
    return file("/proc/swaps", text);
}

// One run: what is changed before it, and what has come of it.
struct Step {
    Change before;
    const char *options;
    int exit_status;
    std::string done; // programs and calls; the switch is on for each swapon and swapoff, and off behind it
    std::string state;
    std::string log = "";
};

struct SwapBox : Sandbox {
    explicit SwapBox(const std::string &conf = "")
    {
        file(kConf, "internalportcfg=\"0xf\"\nusbportcfg=\"0x10\"\nmaxdisks=\"4\"\n" + conf);
        swaps()(*this);
        file("/proc/cpuinfo", "processor : 0\n");
        file(kFlag, "0");
        program("/sbin/mkswap", {{.args = "/dev/bad", .exit_status = 3}, {}});
        call({.call = "write", .args = std::string(kFlag) + " *", .real = true});
        leaves({kLock, kState, "/dev/md1", "lock *", "/tmp/.not.dualhead", "/run/space*", "semaphore *"});
    }
    void expect(const std::vector<Step> &steps)
    {
        const std::string flag = std::string("write ") + kFlag + " 1\n";
        for (const Step &step : steps) {
            SCOPED_TRACE(std::to_string(&step - steps.data()) + " " + step.options);
            step.before(*this);
            const Result result = run(words(step.options, "norv_swap_ctl"));
            EXPECT_EQ(result.exit_status, step.exit_status);
            EXPECT_EQ(result.out, "");
            EXPECT_TRUE(result.record.in_order(lines(step.log)));
            std::string done;
            for (const std::string &line : result.record.lines)
                if (line.starts_with("run ") || line.starts_with("swap") || line.starts_with("mknod") ||
                    line + "\n" == flag)
                    done += line + "\n";
            EXPECT_EQ(std::regex_replace(done, std::regex(flag + "(swap.*\n)" + flag), "$1"), step.done);
            EXPECT_EQ(text_of(*this, kFlag), "0");
            EXPECT_EQ(text_of(*this, kState), step.state);
        }
    }
};

TEST(Swap, ByHand)
{
    SwapBox box;
    box.call({.call = "swapon", .args = "/dev/busy *", .error = EBUSY});
    box.call({.call = "swapoff", .args = "/dev/busy", .error = ENOMEM});
    box.expect({
        {file(kFlag, "1\n"), "--on /dev/sdx", 0, "run /sbin/mkswap /dev/sdx\nswapon /dev/sdx 0x0\n", kNoFile},
        {{}, "-f /dev/sdx", 0, "swapoff /dev/sdx\n", kNoFile},
        {{},
         "--on /dev/bad",
         255,
         "run /sbin/mkswap /dev/bad\n",
         kNoFile,
         "log err swap_on.cpp:* Failed to mkswap *, ret = 3"},
        {{}, "--on /dev/busy", 255, "run /sbin/mkswap /dev/busy\nswapon /dev/busy 0x0 = EBUSY\n", kNoFile},
        {{}, "--off /dev/busy", 255, "swapoff /dev/busy = ENOMEM\n", kNoFile},
    });
    EXPECT_FALSE(box.exists(kLock));

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
    const std::pair<const char *, std::string> kCases[] = {
        {"supportportmappingv2=\"YES\"\n", "/dev/sata1p2"},
        {"ali_nos=\"yes\"\nsupportportmappingv2=\"yes\"\n", "/dev/sda6"},
        {"ali_nos=\"YES\"\n", "/dev/sda2"},
        {"ali_nos=\"yes\"\nsupportraid=\"Yes\"\n", "/dev/md1"},
    };
    for (const auto &[conf, device] : kCases) {
        SCOPED_TRACE(conf);
        SwapBox box(conf);
        box.device(device, 1 << 20);
        box.request({.device = "/dev/md1", .request = 0x80480911, .bytes = std::string(72, '\0')});
        box.expect({{{}, "--start", 0, "run /sbin/mkswap " + device + "\nswapon " + device + " 0x0\n", kOn}});
    }
}

TEST(Swap, StatesOnOneDisk)
{
    const std::string on = "run /sbin/mkswap /dev/sda2\nswapon /dev/sda2 0x0";
    SwapBox box;
    box.device("/dev/sda2", 1 << 20);
    box.expect({
        {{}, "--stop", 0, "", kOff}, // nothing to do
        {call({.call = "swapon", .error = EINVAL, .times = 1}), "--start", 255, on + " = EINVAL\n", kOff},
        {{}, "--start", 0, on + "\n", kOn},
        {{}, "--start", 0, "", kOn},
        {swaps("/dev/sdb2 /dev/sda2") + call({.call = "swapoff", .error = ENOMEM, .times = 1}), "--stop", 255,
         "swapoff /dev/sda2 = ENOMEM\n", kOn},
        {{}, "--stop", 0, "swapoff /dev/sda2\n", kOff},
        {{}, "--start", 0, "", kOn},                                               // on already
        {gone("/dev/sda2") + file(kState, kOff) + swaps(), "--start", 0, "", kOn}, // no device
    });
}

TEST(Swap, StateFileAndLock)
{
    const std::string unread = std::string("log err swap_json.cpp:* *(*): Fail to read json file ") + kState + "!";
    const std::string not_read = unread + "\nlog err *:* Failed to call NLIBCSwapJsonFileRead";
    constexpr char kCut[] = R"({"state":)", kBusy[] = R"({"state":"Busy"})", kSeven[] = R"({"state":7})";
    SwapBox box;
    box.device("/dev/sda2", 1 << 20);
    box.expect({
        {file(kState, kCut), "--start", 255, "", kCut, not_read},
        {{}, "--stop", 255, "", kCut, not_read},
        {file(kState, "[]"), "--start", 255, "", "[]", not_read},
        {file(kState, kBusy), "--start", 255, "", kBusy,
         "log err *(*): Swap state(Busy) is not None!\nlog err *:* Failed to call NLIBCSwapStateCheck"},
        {{}, "--stop", 255, "", kBusy, "log err *(*): Swap state(Busy) is not Ready!"},
        {file(kState, kSeven), "--start", 255, "", kSeven, "log err *(*): Swap state() is not None!"},
    });
    box.remove(kState);
    box.compress_sleeps();
    box.expect(
        {{call({.call = "flock", .args = std::string(kLock) + " *", .error = EWOULDBLOCK}), "--start", 255, "", kNoFile,
          std::string("log err *:* Failed to lock ") + kLock + "\nlog err *:* Failed to call NLIBCSwapJsonFileLock"}});
    EXPECT_NEAR(box.record().count("usleep 50000"), 1200, 1);
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
    constexpr char kArrays[] = "supportraid=\"yes\"\n";
    SwapBox box(kArrays);
    for (const char *disk : {"sdb", "sda", "sdc"})
        box.directory(std::string("/sys/block/") + disk);
    const std::string asked = "run /sbin/mdadm -E /dev/sda2\nrun /sbin/mdadm -E /dev/sdb2\n"; // until one answers
    const std::string assemble = asked + "run /sbin/mdadm -A /dev/md1 -u 1:2:3:4 --run /dev/sda2 /dev/sdb2 /dev/sdc2\n";
    const std::string on = "run /sbin/mkswap /dev/md1\nswapon /dev/md1 0x0\n";
    box.program("/sbin/mdadm",
                {{.args = "-E /dev/sdb2", .output = "  Version : 0.90.00\n     UUID : 1:2:3:4\n  Raid Level : raid1\n"},
                 {.args = "-E *", .exit_status = 1},
                 {.args = "-A *", .error = "no\n", .exit_status = 1, .times = 1},
                 {.args = "-A *", .effect = [&box](const ProgramCall &) { array_appear(box); }},
                 {}});
    box.expect({
        {{}, "--start", 255, assemble, kOff, "log err *:* Failed to assemble /dev/md1, ret = 256"},
        {{}, "--start", 0, assemble + on, kOn},
        {swaps("/dev/md1"), "--stop", 0, "swapoff /dev/md1\nrun /sbin/mdadm -S /dev/md1\n", kOff},
        {swaps(), "--start", 0, on, kOn}, // still there: not assembled
    });

    SwapBox none(kArrays); // no disk, no array
    none.expect({{{}, "--start", 0, "", kOn}});

    SwapBox sick(kArrays);
    sick.request({.device = "/dev/md1", .request = 0x80040961, .error = EIO});
    array_appear(sick);
    sick.expect(
        {{file(kState, kOn), "--stop", 255, "", kOn, "log err swap_stop.cpp:* Fail to get RAID info of [/dev/md1]"}});
}

TEST(Swap, Zram)
{
    struct sysinfo memory = {};
    memory.totalram = 8UL << 18;
    memory.mem_unit = 4096;
    SwapBox box("support_zram=\"yes\"\n");
    box.file("/proc/cpuinfo", "processor : 0\ncpu cores : 4\n");
    for (const auto &[number, size] : {std::pair("0", "0\n"), {"1", "4096\n"}, {"3", "0\n"}})
        box.file(std::string("/sys/block/zram") + number + "/disksize", size);
    box.device("/dev/zram0", 0);
    box.device("/dev/zram1", 0);
    box.call({.call = "sysinfo", .bytes = std::string(reinterpret_cast<const char *>(&memory), sizeof(memory))});
    box.call({.call = "mknod"});
    box.expect({
        {file("/etc/norvinfo.conf", "enable_zram=\"no\"\n"), "--start", 0, "", kOn},
        {file("/etc/norvinfo.conf", "enable_zram=\"yes\"\n") + swaps("/dev/zram1"), "--start", 0, // Ready, and still
         "run /sbin/mkswap /dev/zram0\nswapon /dev/zram0 0x8001\n"
         "mknod /dev/zram3 60600 0xfc03\nrun /sbin/mkswap /dev/zram3\nswapon /dev/zram3 0x8001\n",
         kOn},
        {swaps("/dev/zram0 /dev/zram1 /dev/zram2") + call({.call = "swapoff", .args = "/dev/zram0", .error = ENOMEM}),
         "--stop", 0, "swapoff /dev/zram0 = ENOMEM\nswapoff /dev/zram1\n", kOff},
        {{}, "--stop", 0, "swapoff /dev/zram0 = ENOMEM\nswapoff /dev/zram1\n", kOff}, // None, and all the same
        {gone("/proc/cpuinfo"), "--start", 255, "", kOn,
         "log err zram_cores_get.cpp:* *(*): Failed to open /proc/cpuinfo"},
    });
    EXPECT_EQ(box.read_file("/sys/block/zram0/disksize"), std::to_string(1229L << 20));
    EXPECT_EQ(box.read_file("/sys/block/zram1/disksize"), "4096\n");
}

} // namespace

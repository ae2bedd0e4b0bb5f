// norvcleanpartition on machines with disks of several classes. No disk is real.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "build_paths.h"
#include "tests/support/sandbox.h"

namespace
{

constexpr char kProbe[] = "/bin/probe"; // starts a role with SIGCHLD ignored, as no shell does

// Internal sda and sdc, USB sdb, an expansion unit's sdea, and a name that does not fit. sdd hangs on a hub.
void machine_make(Sandbox &box, const std::string &keys)
{
    box.file("/etc.defaults/norvinfo.conf",
             "internalportcfg=\"0x5\"\nusbportcfg=\"0x2\"\nesataportcfg=\"0x10\"\n" + keys);
    for (const char *name : {"sda", "sdb", "sdc", "sdd", "sdea", "sysd12345678"})
        box.directory(std::string("/sys/block/") + name);
    for (const char *program : {"/bin/dd", "/sbin/mdadm"})
        box.program(program);
    box.compress_sleeps();
    box.leaves({"/tmp/norv_swap_ctl.lock", "/tmp/norv_swap_status.json"});
}

std::string wiped(const std::string &path)
{
    return "run /bin/sh -c 'dd if=/dev/zero of=/dev/" + path + " bs=1M count=1 1>/dev/null 2>&1'";
}

// The record without the programs that a shell line runs and without the log.
std::string steps(const Result &result)
{
    std::string lines;
    for (const std::string &line : result.record.lines)
        if (line.starts_with("run ") && !line.starts_with("run /bin/dd"))
            lines += line + "\n";
    return lines;
}

TEST(CleanPartition, WipesClassByClass)
{
    constexpr char kRaid[] = "supportraid=\"yes\"\n";
    const struct {
        const char *keys;
        bool raid;
        std::vector<std::string> args = {"norvcleanpartition"};
        const char *swap_state = R"({"state":"None"})"; // or swap does not stop
        const char *out = "";
    } kCases[] = {
        {kRaid, true},
        {"supportraid=\"Yes\"\n", false},
        {kRaid, true, {kProbe, "ignored", "/usr/sbin/norvcleanpartition"}, "no state", "named /bin/probe\n"},
    };
    for (const auto &[keys, raid, args, swap_state, out] : kCases) {
        Sandbox box;
        machine_make(box, keys);
        box.file("/tmp/norv_swap_status.json", swap_state);
        box.host_file(kProbe, SANDBOX_PROBE);
        box.program("/sbin/mdadm", {{.args = "--zero-superblock /dev/sdc", .exit_status = 2}});
        const Result result = box.run(args);
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, out);
        const auto zeroed = [zeroes = raid](const std::string &name) {
            return zeroes ? "run /sbin/mdadm --zero-superblock /dev/" + name + "\n" : std::string();
        };
        EXPECT_EQ(steps(result), (raid ? std::string("run /sbin/mdadm -S /dev/md0\n") : std::string()) + wiped("sda") +
                                     "\n" + wiped("sdc") + "\n" + zeroed("sdc") + wiped("sdea") + "\n" +
                                     zeroed("sdea") + wiped("sdb") + "\n" + zeroed("sdb") + wiped("sysd123456") + "\n" +
                                     zeroed("sysd123456"));
        EXPECT_EQ(result.record.count("log err *Failed to zero RAID superblock '/dev/sdc'"), raid ? 1 : 0);
        EXPECT_EQ(result.record.count("log err *Fail to swap stop!"), *swap_state == 'n' ? 1 : 0);
    }
}

} // namespace

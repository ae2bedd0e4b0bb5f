// raidtool on machines whose disks and arrays are told by stand-ins.
#include <algorithm>
#include <climits>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "build_paths.h"
#include "tests/storage/root_block_bytes.h"
#include "tests/support/rows.h"

namespace
{

constexpr const char *kPlan = "/bin/norv-plan";
constexpr const char *kDefaults = "/etc.defaults/norvinfo.conf";
constexpr const char *kUsage = "usage:\n\traidtool destroy <RAID ID> \n\traidtool status <RAID ID> \n"
                               "\traidtool newvol \n\traidtool initsys \n\traidtool initsys-dd ";

template <typename Word> std::string bytes_of(const std::vector<Word> &values)
{
    return {reinterpret_cast<const char *>(values.data()), values.size() * sizeof(Word)};
}
using Words = std::vector<std::uint32_t>;
using LongWords = std::vector<std::uint64_t>;

// Partitions 1 and 2 by layout version.
struct Layout {
    int version;
    std::uint64_t start[2], size[2];
};
constexpr Layout kLayouts[] = {
    {1, {63, 1574370}, {1574307, 787185}},      {6, {63, 4980150}, {4980087, 4192965}},
    {7, {256, 4980736}, {4980480, 4194304}},    {8, {2048, 4982528}, {4980480, 4194304}},
    {9, {8192, 16785408}, {16777216, 4194304}}, {0, {100, 5000}, {4900, 6000}}, // of no layout
};

struct Machine : Sandbox {
    explicit Machine(const std::string &keys = "maxdisks=4\n")
    {
        file(kDefaults, keys + "supportraid=\"yes\"\ninternalportcfg=\"0xffff\"\nesataportcfg=\"0\"\n"
                               "usbportcfg=\"0x10000\"\n"); // of two lines with one key the first counts
        for (const char *program : {"/sbin/mdadm", "/sbin/sfdisk", "/bin/norvdd", "/bin/mkdir"})
            this->program(program);
        host_file(kPlan, NORV_BINARY_DIR "/tools/norv-plan/norv-plan");
        compress_sleeps();
        leaves({"/tmp/.*dualhead"});
    }

    // Disks as rows tell them: "sda sdb=0 sdc=8:123" are a blank one, one of no layout, one of layout 8 with metadata
    // on partitions 1 to 3.
    void disks(const std::string &text)
    {
        for (const std::string &word : words(text)) {
            const size_t equal = std::min(word.find('='), word.size()), colon = std::min(word.find(':'), word.size());
            const std::string name = word.substr(0, equal), members = word.substr(colon);
            directory("/sys/block/" + name);
            device("/dev/" + name, 1ULL << 40);
            listed_ += "   8        0 1073741824 " + name + "\n";
            for (const Layout &layout : kLayouts)
                for (int n = 0; n < 2 && equal < word.size() && layout.version == atoi(&word[equal + 1]); n++) {
                    const std::string number = std::to_string(n + 1), partition = name + number,
                                      folder = "/sys/block/" + name + "/" + partition,
                                      start = std::to_string(layout.start[n]), size = std::to_string(layout.size[n]);
                    file(folder + "/start", start + "\n");
                    file(folder + "/size", size + "\n");
                    program("/sbin/sfdisk", {{.args = "-l -uS -N" + number + " /dev/" + name,
                                              .output = "/dev/" + partition + " " + start + " " + size + " fd\n"}});
                    listed_ += "   8        1 1000 " + partition + "\n";
                }
            for (const char number : members.substr(std::min<size_t>(members.size(), 1))) {
                program("/sbin/mdadm", {{.args = "-E /dev/" + name + number,
                                         .output = std::string("   Array UUID : u") + number + "\n Name : n:2\n"}});
                if (number > '2')
                    listed_ += "   8        3 1000 " + name + number + "\n";
            }
        }
        file("/proc/partitions", "major minor  #blocks  name\n\n" + listed_);
    }
    // What was done to disks and arrays, or to one disk, one line each; questions left out.
    [[nodiscard]] static std::string done(const Result &result, const std::string &disk = "")
    {
        std::string lines;
        for (const std::string &line : result.record.lines)
            if ((line.starts_with("run /sbin") || line.starts_with("run /bin/norvdd") || line.starts_with("sleep")) &&
                line.find(" -E ") == std::string::npos && line.find(" -l -uS ") == std::string::npos &&
                (disk.empty() || line.ends_with("/dev/" + disk)))
                lines += line.substr(line.starts_with("run ") ? 4 : 0) + "\n";
        return lines;
    }

  private:
    std::string listed_;
};

std::string format_done(const std::string &disk, bool whole = true, int version = 8, bool raid = true)
{
    const std::string end = " /dev/" + disk + "\n", sfdisk = "/sbin/sfdisk ";
    const Layout &layout = *std::ranges::find(kLayouts, version, &Layout::version);
    const auto made = [&](int number, std::uint64_t start, std::uint64_t size, const char *type) {
        return sfdisk + "-N" + std::to_string(number) + " -uS -q -f -j" + std::to_string(start) + " -z" +
               std::to_string(size) + " -t" + (raid ? "fd" : type) + " -F" + end;
    };
    return (whole ? sfdisk + "--fast-delete -1" + end + sfdisk + "-M1" + end : sfdisk + "--fast-delete 1:2" + end) +
           sfdisk + "-M1" + end + made(1, layout.start[0], layout.size[0], "83") + made(2, 0, layout.size[1], "82");
}
// A shell line, as the record has it.
std::string shell_line(const std::string &line)
{
    return "run /bin/sh -c '" + line + "> /dev/null 2>&1'\n";
}

TEST(Raidtool, Outcomes)
{
    const std::string usage = kUsage, missing = "parameters not enough\n" + usage;
    const std::string kNoDisk = "log err *No disk to create system and swap partition, initsys fail!";
    const std::string kNoRaid = "maxdisks=4\nsupportraid=\"no\"\npartition_curr_version=10\n"; // no such version
    const auto sfdisk_fails = [](const char *args) {
        return program("/sbin/sfdisk", {.args = args, .exit_status = 3});
    };
    const std::string kTwoHeads = "support_dual_head=\"yes\"\nesataportcfg=\"1\"\n";
    const auto create = [](const std::string &rest) { return shell_line("/sbin/mdadm -C /dev/md" + rest); };
    // The system's arrays of "a" or "ab", disks sda and sdb; `places` are those that stay free.
    const auto arrays = [&](const std::string &options, const std::string &letters, const std::string &places) {
        std::string root, swap;
        for (const char letter : letters) {
            root += std::string("/dev/sd") + letter + "1 ";
            swap += std::string("/dev/sd") + letter + "2 ";
        }
        return create("0 -e 0.9 -amd -R -l1 " + options + root + places) +
               create("1 -e 0.9 -amd -R -l1 " + options + swap + places);
    };
    std::string missing_60; // past 255 characters it is cut in the middle of a word
    while (missing_60.size() < 255)
        missing_60 += " missing";
    missing_60.resize(255);
    const std::string dd_shell = shell_line("/bin/norvdd /dev/sda1 /dev/sdb1  /dev/sda2 /dev/sdb2  ") +
                                 arrays(" -n4 ", "ab", "  missing missing");
    const std::string inited = "log err *system inited on [/dev/sda1 *";
    const struct {
        const char *command;
        std::string keys, disks;
        int exit_status;
        std::string out, shell = "", log = "";
        Change change = {};
        const char *wiped = "";                // partitions whose metadata goes
        const char *data = "260352 -z-1 -tfd"; // how the data partition is made
    } kCases[] = {
        {"", "", "", 1, usage},
        {"initsy", "", "", 1, "command not recognized\n" + usage},
        {"destroy", "", "", 1, missing},
        {"newvol now", "", "", 1, usage},

        {"initsys", "", "", 1, "", "", "log err *Failed to find partition layout"},
        {"initsys-dd", "", "sda", 1, "", shell_line("/bin/norvdd   "), kNoDisk, kNoChange, "/dev/sda1 /dev/sda2"},
        {"initsys", "maxdisks=4\npartition_curr_version=4\n", "sda", 1, "", "",
         "log err partition_create.cpp:* Failed to get partition layout: version=4\n"
         "log err *Failed to create system partition of sda, newlayout=4, errno=0x*"},
        {"initsys-hdseries", "maxdisks=4\n", "sda", 1, "", "",
         "log err *Failed to initsys-system-disk, not member of HD series."},
        {"initsys-dd", "maxdisks=4\n", "sda sdb", 0, "system init with norvdd failed\n", dd_shell, inited,
         program("/bin/norvdd", {.exit_status = 3})},
        {"initsys", "maxdisks=4\n", "sda", 0, "", arrays("-f -n4 ", "a", "  missing missing missing"),
         "log debug partition_clean.cpp:* Failed to do '/sbin/sfdisk --fast-delete -1 /dev/sda'\n" + inited,
         sfdisk_fails("--fast-delete *")},
        {"initsys", kNoRaid, "sda", 0, "", arrays("-f -n4 ", "a", "  missing missing missing"), inited},
        {"initsys", "maxdisks=4\n", "sda", 1, "", "",
         "log err partition_table_add.cpp:* Failed to add ms-dos signature to /dev/sda, err=3\n" + kNoDisk,
         sfdisk_fails("-M1 *")},
        {"initsys", "maxdisks=4\n", "sda", 1, "", "",
         "log err partition_create.cpp:* Failed to partition disk /dev/sda, err=3\n" + kNoDisk, sfdisk_fails("-N1 *")},
        {"initsys", "max_sys_raid_disks=2\n", "sda sdb sdc", 0, "", arrays(" -n2 ", "ab", " "), inited, kNoChange,
         "/dev/sdc1 /dev/sdc2"},
        {"initsys", "max_sys_raid_disks=60\n", "sda", 0, "", arrays("-f -n60 ", "a", " " + missing_60), inited},

        // How many disks are to be formatted, and which.
        {"enumformatalldisks", "", "sda sdb=8:123 sdc=0 sdd=8", 2, "1 4 "}, // beside one that keeps data
        {"enumformatalldisks", "", "sda=8:123", 0, ""},
        {"enumformatalldisks", "", "sda=1:3 sdb=8:3 sdc=0", 3, "1 2 3 ", "", "log err *Failed to get format type"},
        {"enumformatalldisks", "", "sda=7:13 sdb=9:13 sdc=9:1", 1, "3 "}, // by the layout of the first
        {"enumformatalldisks", "", "", 1, ""},
        {"enumformatalldisks", kTwoHeads, "sdaa", 1, "27 "},
        {"enumformatalldisks_indualhead_install", kTwoHeads, "sdaa", 1, "all"},
        {"enumformatalldisks", "support_install_only_dev=\"yes\"\n", "sysdx", 1, "0 ", "",
         "log err *DiskPathParse(sysdx) fail"},

        {"newvol", "maxdisks=4\n", "", 1, "No disk to create RAID... "},
        {"newvol", "maxdisks=4\n", "sda", 0, "Creating RAID 1 volume... ", create("2 -amd -R -l1 -f -n1 /dev/sda3 ")},
        {"newvol", "maxdisks=4\n", "sda sdb sdc", 0, "Creating RAID 5 volume... ",
         create("2 -amd -R -l5  -n3 /dev/sda3 /dev/sdb3 /dev/sdc3 ")},
        {"newvol", "maxdisks=4\n", "sda sdb", 0, "Creating RAID 5 volume... \n",
         create("2 -amd -R -l5  -n2 /dev/sda3 /dev/sdb3 "), "", file("/tmp/raid.5")},
        {"newvol", "maxdisks=4\n", "sda sdb", 1, "", "",
         "log err partition_create.cpp:* Failed to [/sbin/sfdisk -N3  -uS -q -f -j260352 -z-1 -tfd -F /dev/sdb], "
         "err=3\n"
         "log err *Failed to create data partition of /dev/sdb, errno=0x2A00",
         sfdisk_fails("-N3 * /dev/sdb")},
        {"newvol", "maxdisks=4\nsupportraid=\"no\"\npartition_curr_version=9\n", "sda", 0, "Creating RAID 1 volume... ",
         create("2 -amd -R -l1 -f -n1 /dev/sda3 "), "", kNoChange, "", "262144 -z-1 -t83"},
        {"newvol", "maxdisks=4\n", "sda sdb", 1, "Creating RAID 1 volume... ",
         create("2 -amd -R -l1  -n2 /dev/sda3 /dev/sdb3 "),
         "log err *Failed to create RAID '/dev/md2' on '/dev/sda3 /dev/sdb3 ', errno=*",
         program("/sbin/mdadm", {.args = "-C *", .exit_status = 1})},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(std::string(row.command) + " " + row.keys + row.disks);
        Machine box(row.keys);
        row.change(box);
        box.disks(row.disks);
        const Result result = box.run(words(row.command, "raidtool"));
        EXPECT_EQ(result.exit_status, row.exit_status);
        EXPECT_EQ(result.out, row.out);
        EXPECT_EQ(result.record.text("run /bin/sh*"), row.shell);
        EXPECT_TRUE(!row.out.ends_with(usage) || box.programs_called().empty());
        EXPECT_TRUE(result.record.in_order(lines(row.log)));
        EXPECT_EQ(result.record.count("run /sbin/mdadm --zero*"), std::ssize(words(row.wiped)));
        for (const std::string &partition : words(row.wiped))
            EXPECT_EQ(result.record.count("run /sbin/mdadm --zero-superblock " + partition), 1);
        if (row.log.ends_with(inited)) {
            EXPECT_TRUE(result.record.in_order(
                {"sleep 3", "run /sbin/mdadm -C /dev/md0 *", "sleep 3", "run /sbin/mdadm -C /dev/md1 *", inited}));
            for (const std::string &disk : words(row.disks))
                EXPECT_EQ(Machine::done(result, disk), format_done(disk, true, 8, row.keys != kNoRaid));
        }
        std::string volumes;
        for (const std::string &disk : words(std::string(row.command) == "newvol" ? row.disks : ""))
            volumes += "/sbin/sfdisk --fast-delete 3:128 /dev/" + disk + "\n/sbin/sfdisk -N3 '' -uS -q -f -j" +
                       row.data + " -F /dev/" + disk + "\n";
        EXPECT_TRUE(Machine::done(result).starts_with(volumes)) << Machine::done(result);
        EXPECT_TRUE(row.command[0] != 'e' || Machine::done(result).empty()) << Machine::done(result);
    }
}

// Of a disk with no child, and of one whose partitions are not made. What comes of the arrays shows later.
TEST(Raidtool, InitsysGoesOnWithoutTheDiskThatFails)
{
    const std::string after =
        "run /sbin/mdadm -C /dev/md0 -e 0.9 -amd -R -l1 -n4 /dev/sdb1 /dev/sdc1 missing missing\n"
        "log err *Failed to create RAID '/dev/md0' on '/dev/sdb1 /dev/sdc1 ' \n"
        "log err *szCmd=*/sbin/mdadm -C /dev/md0 -e 0.9 -amd -R -l1  -n4 /dev/sdb1 /dev/sdc1   missing missing> *\n"
        "run /sbin/mdadm -C /dev/md1 *";
    const std::pair<Change, std::string> kCases[] = {
        {program("/sbin/sfdisk", {.args = "-N2 * /dev/sda", .exit_status = 5}),
         "log err partition_create.cpp:* Failed to [/sbin/sfdisk -N2 -uS -q -f -j0 -z4194304 -tfd -F /dev/sda], err=5\n"
         "log err *Failed to create system partition of sda, newlayout=8, errno=0x2A00\n"},
        {call({.call = "fork", .error = EAGAIN, .times = 1}), "log err *Failed to fork.\n"},
    };
    for (const auto &[change, record] : kCases) {
        Machine box;
        box.disks("sda sdb sdc");
        box.program("/sbin/mdadm", {{.args = "-C *", .exit_status = 1}});
        change(box);
        const Result result = box.run({"raidtool", "initsys"});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_TRUE(result.record.in_order(lines(record + after)));
    }
}

TEST(Raidtool, InitsysHdSeries)
{
    Machine box("unique=\"norv_x86_hd60\"\nmax_sys_raid_disks=1\nsupport_install_only_dev=\"yes\"\n");
    box.disks("sysd1 sysd2");
    const Result result = box.run({"raidtool", "initsys-hdseries"});
    EXPECT_EQ(result.exit_status, 0);
    const auto fixed = [](const std::string &disk) {
        return "/sbin/sfdisk --fast-delete -1 /dev/" + disk + "\n/sbin/sfdisk -M1 /dev/" + disk +
               "\n/sbin/sfdisk -M1 /dev/" + disk + "\n/sbin/sfdisk -N1 -uS -q -f -j8192 -z209715200 -tfd -F /dev/" +
               disk + "\n";
    };
    EXPECT_EQ(Machine::done(result), fixed("sysd1") + fixed("sysd2") +
                                         "/sbin/mdadm --zero-superblock /dev/sysd2p1\nsleep 3\n"
                                         "/sbin/mdadm -C /dev/md0 -e 0.9 -amd -R -l1 -f -n1 /dev/sysd1p1\n");
    EXPECT_EQ(result.record.count("log err *Success to init system on [/dev/sysd1p1 ]"), 1) << result.record.text();
}

// What initsys does to each disk tells the type that was found for it. The forecast says the same before.
TEST(Raidtool, FormatTypes)
{
    const struct {
        const char *what;
        const char *disks;
        std::string done; // a letter each: W whole, S system partitions in place, - nothing
        int made;
        Change change = {};
    } kCases[] = {
        {"of no layout, alone", "sda=0", "S", 8},
        {"of no layout beside one that keeps data", "sda=0 sdb=8:123", "-S", 8},
        {"nothing of ours on it", "sda=8 sdb", "WW", 8},
        {"another layout, not used", "sda=6:1", "W", 8},
        {"another layout, used", "sda=6:13 sdb=8:13", "-S", 8},
        {"used as partition 5", "sda=6:15 sdb=9:1235", "-S", 9},
        {"the layout of the system array's member", "sda=7:13 sdb=9:13", "S-", 7,
         directory("/sys/block/md0/md/dev-sdx1") + directory("/sys/block/md0/md/dev-sda1")},
        {"layout 7 for 8", "sda=7:123 sdb=8:3", "SS", 8},
        {"layout 8 for 7 cannot be", "sda=7:3", "S", 7},
        {"the oldest layout", "sda=1:13", "W", 1},
        {"all of it by force", "sda=8:13 sdb=0", "WW", 8, file("/.force_clean_all_disk")},
        {"left to others by its root block", "sda=8:123", "W", 8, file("/dev/sda", root_block_disk(2))},
        {"shared by its root block", "sda=8:123", "S", 8, file("/dev/sda", root_block_disk(1))},
        {"sda is in the path of the partition of sdaa", "sda=8 sdaa=8:3", "S", 8},
    };
    for (const auto &[what, disks, done, made, change] : kCases) {
        SCOPED_TRACE(what);
        Machine box;
        box.disks(disks);
        change(box);
        const Result told = box.run({kPlan});
        EXPECT_EQ(Machine::done(told), "");
        std::string foreseen;
        for (const std::string &line : lines(told.out))
            if (line.starts_with("  erases "))
                foreseen += line.starts_with("  erases all ") ? 'W' : line.starts_with("  erases p") ? 'S' : '-';
        EXPECT_EQ(foreseen, done);
        const Result result = box.run({"raidtool", "initsys"});
        EXPECT_EQ(result.exit_status, 0);
        std::string members;
        for (size_t i = 0; i < done.size(); i++) {
            const std::string name = words(disks)[i].substr(0, 3);
            EXPECT_EQ(Machine::done(result, name), done[i] == '-' ? "" : format_done(name, done[i] == 'W', made));
            members += done[i] == '-' ? "" : "/dev/" + name + "1 ";
        }
        EXPECT_EQ(result.record.count("run /bin/sh -c */dev/md0 * -n4 " + members + "*"), 1) << result.record.text();
    }
}

// The whole text for a disk with data beside one of no layout; then why no disk can take the system.
TEST(Raidtool, ForecastForPeople)
{
    const std::string cannot = "  no system partitions can be made: ";
    const Change data = file("/sys/block/sda/sda3/start", "11000\n") + file("/sys/block/sda/sda3/size", "1000\n");
    const Change small = [](Sandbox &box) { box.device("/dev/sda", 4ULL << 30); };
    const struct {
        const char *keys, *disks;
        std::string holds;
        Change change = {};
        int exit_status = 1;
        const char *args = "";
    } kCases[] = {
        {"maxdisks=3\nmax_sys_raid_disks=1\n", "sda=8:13 sdb=0",
         "bay 1: sda, 1024.0 GiB, layout 8\n"
         "  partition 1: sectors 2048 to 4982527, metadata of /dev/md2\n"
         "  partition 2: sectors 4982528 to 9176831\n"
         "  partition 3: sectors 9437184 to 9438183, metadata of /dev/md2\n"
         "  type 2: it has the wanted layout, or one that lies as well, and an array that this system may use "
         "(/dev/sda1)\n"
         "  erases partitions 1 2, keeps partition 3\n"
         "  gets system partitions, place 0 of /dev/md0 and /dev/md1\n"
         "bay 2: sdb, 1024.0 GiB\n"
         "  partition 1: sectors 100 to 4999\n"
         "  partition 2: sectors 5000 to 10999\n"
         "  type 4: its partitions 1 and 2 lie as in no layout\n"
         "  erases nothing, keeps partitions 1 2\n"
         "  left alone, since another disk has data to keep\n"
         "bay 3: empty\n"
         "layout 8, /dev/md0 and /dev/md1 with 1 places, free: none\n",
         file("/sys/block/sda/sda3/start", "9437184\n") + file("/sys/block/sda/sda3/size", "1000\n"), 0},
        {"maxdisks=4\n", "sda=0", cannot + "partition 3 is in the way\n", data},
        {"maxdisks=4\n", "sda", cannot + "the disk is too small\n", small},
        {"maxdisks=4\npartition_curr_version=4\n", "sda", cannot + "the model has no layout of this version\n"},
        {"maxdisks=1\n", "", "bay 1: empty\nno disk can take the system: initsys would fail\n"},
        {"maxdisks=4\n", "sda=0", R"("reason":"no-layout")", data, 1, "--json"},
        {"", "", "", {}, 2, "--jason"},
    };
    for (const auto &[keys, disks, holds, change, exit_status, args] : kCases) {
        Machine box(keys);
        box.disks(disks);
        change(box);
        const Result told = box.run(words(args, kPlan));
        EXPECT_EQ(told.exit_status, exit_status);
        EXPECT_NE(told.out.find(holds), std::string::npos) << told.out;
        EXPECT_TRUE(exit_status != 0 || told.out == holds) << told.out;
    }
}

// The first disk's question hangs. The other disk is asked at the same time, and when the first child is killed its
// disk is left alone.
TEST(Raidtool, DisksAreAskedAtTheSameTimeAndACrashLeavesADiskAlone)
{
    Machine box;
    box.program("/sbin/sfdisk", {{.args = "-l -uS -N2 /dev/sda", .stays = true}});
    box.disks("sda sdb");
    Process process = box.start({"raidtool", "initsys"}, {.seconds = 60, .leaves = {"process sfdisk"}});
    ASSERT_TRUE(box.wait_for("run /sbin/sfdisk -l -uS -N2 /dev/sda"));
    ASSERT_TRUE(box.wait_for("run /sbin/sfdisk -l -uS -N2 /dev/sdb"));
    EXPECT_EQ(box.record().count("run /sbin/sfdisk -M1 *"), 0);
    pid_t first_child = INT_MAX; // that of the other disk came later
    for (const Sandbox::Running &running : box.processes())
        if (running.name == "raidtool" && running.pid != process.pid())
            first_child = std::min(first_child, running.pid);
    box.signal(first_child, SIGKILL);
    const Result result = process.wait();
    for (const Sandbox::Running &running : box.processes()) // the question that hangs
        box.signal(running.pid, SIGKILL);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.record.count("log err *Child exit not normally, pid: * disk: sda"), 1) << result.record.text();
    EXPECT_EQ(Machine::done(result, "sda"), "");
    EXPECT_EQ(Machine::done(result, "sdb"), format_done("sdb"));
}

// A program of theirs that waits for its own children would wait for ever with the signal blocked.
TEST(Raidtool, ProgramsOfTheChildrenHearOfTheirOwn)
{
    Machine box;
    box.disks("sda");
    box.host_file("/bin/plain_sh", "/bin/sh");
    box.file("/sbin/sfdisk", "#!/bin/plain_sh\ntrap 'echo heard >/tmp/heard' CHLD\n(exit 0) &\nwait\n", 0755);
    box.leaves({"/tmp/heard"});
    EXPECT_EQ(box.run({"raidtool", "enumformatalldisks"}).out, "1 ");
    EXPECT_EQ(box.read_file("/tmp/heard"), "heard\n");
}

// Expansion disks beyond the split are told and taken; beyond what the list holds the command gives up.
TEST(Raidtool, NewvolOnTwoHeads)
{
    const struct {
        int disks;
        const char *split;
        int told, exit_status;
    } kCases[] = {{13, "", 1, 0}, {3, "raidgroup_split_units=1\n", 2, 0}, {47, "raidgroup_split_units=60\n", 0, 1}};
    for (const auto &[disks, split, told, exit_status] : kCases) {
        Machine box(std::string("support_dual_head=\"yes\"\nesataportcfg=\"3\"\n") + split);
        for (int i = 0; i < disks; i++)
            box.disks({'s', 'd', static_cast<char>('a' + i / 26), static_cast<char>('a' + i % 26)});
        const Result result = box.run({"raidtool", "newvol"});
        EXPECT_EQ(result.exit_status, exit_status);
        EXPECT_EQ(result.record.count("log err *Get * disks, more than raid group split unit"), told);
        EXPECT_EQ(result.record.count("run /bin/sh * -n" + std::to_string(disks) + " /dev/sdaa3 *"), 1 - exit_status);
        EXPECT_EQ(result.record.count("log err *Too many disks for one array, /dev/sdbu3 does not fit"), exit_status);
    }
}

// An array as the kernel tells of it, with its members' names and states: "sda3=in_sync sdb3=spare".
void array_make(Sandbox &box, std::uint32_t level, const char *members = "sda1=in_sync")
{
    box.device("/dev/md2", 3ULL << 20);
    Words info(18);
    info[0] = 1;
    info[1] = 2;
    info[4] = level;
    info[5] = 1024;
    info[7] = 3;
    box.request({.device = "/dev/md2", .request = 0x80480911, .bytes = bytes_of(info)});
    for (const std::string &member : words(members)) {
        const std::string folder = "/sys/block/md2/md/dev-" + member.substr(0, member.find('='));
        const std::string state = member.substr(member.find('=') + 1);
        box.file(folder + "/state", state + "\n");
        box.file(folder + "/slot", state == "spare" ? "none\n" : "1\n");
    }
}

// What the driver says of its rebuild and its state.
void driver_answers(Sandbox &box, const LongWords &rebuild, std::uint32_t status)
{
    box.request({.device = "/dev/md2", .request = 0x80180960, .bytes = bytes_of(rebuild)});
    box.request({.device = "/dev/md2", .request = 0x80040961, .bytes = bytes_of(Words{status})});
}

// A kernel without the two requests tells the same by its files.
TEST(Raidtool, Status)
{
    constexpr char kFour[] = "sda3=in_sync sdb3=error sdc3=spare sdd3=spare,x"; // how the members are told
    const struct {
        std::uint32_t level;
        int status;        // of the driver; -1: it has none
        LongWords rebuild; // of the driver
        const char *files; // what they hold, in turn
        const char *members, *shown, *rebuilding, *name;
    } kCases[] = {
        {1, 0, {0, 0, 0}, "", kFour, "NORMAL", "None", "RAID 1"},
        {5, 1, {1, 0, 800}, "", kFour, "DEGRADE", "Waiting...", "RAID 5"},
        {6, 1, {1, 7, 800}, "", kFour, "DEGRADE", "Progressing...[", "RAID 6"},
        {10, 2, {0, 0, 0}, "", kFour, "CRASHED", "None", "RAID_10"},
        {static_cast<std::uint32_t>(-1), 3, {0, 0, 0}, "", kFour, "CRASHED", "None", "JBOD"},
        {7, 0, {0, 0, 0}, "", kFour, "NORMAL", "None", ""},
        // Free places of a mirror are no loss.
        {1, -1, {}, "clean 2 idle none", "sda1=in_sync", "NORMAL", "None", "RAID 1"},
        {1, -1, {}, "active 2 recover '8 / 80'", "a=in_sync b=spare,x", "DEGRADE", "Progressing...[", "RAID 1"},
        {1, -1, {}, "active 2 idle none", "sda1=faulty", "CRASHED", "None", "RAID 1"},
        {5, -1, {}, "clean 1 idle none", "sda1=in_sync", "DEGRADE", "None", "RAID 5"},
        {5, -1, {}, "active 2 frozen none", "sda1=in_sync", "CRASHED", "None", "RAID 5"},
        {0, -1, {}, "broken", "sda1=in_sync", "CRASHED", "None", "RAID 0"},
    };
    const std::vector<std::string> names = words("array_state degraded sync_action sync_completed");
    for (const auto &row : kCases) {
        SCOPED_TRACE(std::string(row.files) + row.name);
        Machine box;
        array_make(box, row.level, row.members);
        box.directory("/sys/block/md2/md/dev-sde3"); // cannot be read, and is left out
        const std::vector<std::string> texts = words(row.files);
        for (size_t i = 0; i < texts.size(); i++)
            box.file("/sys/block/md2/md/" + names[i], texts[i] + "\n");
        if (row.status >= 0)
            driver_answers(box, row.rebuild, static_cast<std::uint32_t>(row.status));
        const Result result = box.run({"raidtool", "status", "2"});
        EXPECT_EQ(result.exit_status, 0);
        const std::string head = std::string("/dev/md2 is running, status: ") + row.shown +
                                 ", rebuilding: " + row.rebuilding + "\nDevice level: " + row.name +
                                 "\nDevice size: 3 MB (3145728 bytes) \nDisk: \n";
        if (row.status >= 0) {
            EXPECT_EQ(result.out, head + "\t [/dev/sdd3: Rebuilding]\n\t [/dev/sdc3: Spare Disk]\n"
                                         "\t [/dev/sdb3: Failed(Which ma]\n\t [/dev/sda3: Normal]\n\n");
        }
        EXPECT_TRUE(result.out.starts_with(head)) << result.out;
    }
}

TEST(Raidtool, AnArrayThatIsNotThere)
{
    const struct {
        unsigned long request; // that fails; 0: there is no node
        int error;
        const char *log = "";
    } kCases[] = {
        {0, 0},
        {0x80480911, ENODEV, "ioctl /dev/md2 0x80040961*"}, // is asked, and not looked at
        {0x80180960, ENODEV},
        {0x80040961, EIO},
        {0x80040961, 0, "log debug *unknown raid status, status=9"},
    };
    for (const auto &[request, error, log] : kCases)
        for (const bool destroy : {false, true}) {
            Machine box;
            box.program("/sbin/pvs");
            box.request({.device = "/dev/md2", .request = request, .bytes = bytes_of(Words{9}), .error = error});
            if (request != 0)
                array_make(box, 1);
            box.request({.device = "/dev/md2", .request = 0x80180960, .bytes = bytes_of(LongWords{0, 0, 0})});
            const Result result = box.run({"raidtool", destroy ? "destroy" : "status", "2"});
            EXPECT_EQ(result.exit_status, destroy ? 0 : 1) << request;
            EXPECT_EQ(result.out, destroy ? "Not found /dev/md2 \n" : "RAID /dev/md2 is not found\n");
            EXPECT_TRUE(result.record.in_order(lines(log)));
            EXPECT_EQ(box.calls("/sbin/mdadm").size(), 0U);
        }
}

// A volume with a mounted snapshot; the array stops at the third try; swap carries the same UUID and is left alone.
TEST(Raidtool, Destroy)
{
    Machine box;
    box.leaves({"semaphore *", "/run/space/lock/*"});
    box.directory("/run/space/lock");
    box.directory("/mnt/snap shot");
    box.file("/proc/mounts", "box / tmpfs rw 0 0\n/dev/vg1/lvs1 /mnt/snap\\040shot ext4 rw 0 0\n"
                             "/dev/vg1/lvs2 /aufs aufs rw 0 0\n/dev/vg1/lv /volume1 ext4 rw 0 0\n");
    for (const char *program : {"/bin/umount", "/sbin/lvremove", "/sbin/pvremove"})
        box.program(program);
    box.program("/sbin/vgremove", {{.exit_status = 5}});
    box.program("/sbin/pvs", {{.output = "  /dev/md2:vg1:lv:\n"}});
    box.program("/sbin/mdadm", {{.args = "-S *", .error = "busy\n", .exit_status = 1, .times = 1}});
    const std::string same = "Array UUID : here\n";
    for (const char *partition : {"sda1", "sda2", "sda3", "sdb3"})
        box.program("/sbin/mdadm", {{.args = std::string("-E /dev/") + partition,
                                     .output = partition == std::string("sdb3") ? "UUID : other\n" : same}});
    array_make(box, 5, "sda3=in_sync");
    driver_answers(box, {0, 0, 0}, 0);
    box.file("/proc/partitions", "major minor  #blocks  name\n\n 8 0 9 sda\n 8 1 9 sda1\n 8 2 9 sda2\n 8 3 9 sda3\n"
                                 " 8 19 9 sdb3\n 9 2 9 md2\n");
    box.file("/usr/norv/etc/datascrubbing.conf", "[md2]\na=1\n[md3]\na=2\n");
    box.file("/run/space/datascrubbingmd.conf", "datascrubbingmdlist=\"md20,md2,md3\"\n");

    const Result result = box.run({"raidtool", "destroy", "2"});

    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(
        result.record.in_order(lines("run /sbin/pvs -o pv_name,vg_name,lv_name,origin --noheading --separator :\n"
                                     "run /bin/umount -R -A -k '/mnt/snap shot'\nsleep 1\n"
                                     "run /sbin/lvremove -f /dev/vg1/lvs1\nrun /sbin/lvremove -f /dev/vg1/lv\n"
                                     "run /sbin/vgremove -f /dev/vg1\n"
                                     "log debug *Failed to /sbin/vgremove -f /dev/vg1\n"
                                     "run /sbin/pvremove -f /dev/md2\nrun /sbin/mdadm -S /dev/md2\n"
                                     "log info *SpaceCommand:command=\"/sbin/mdadm -S /dev/md2\" Error=\"busy \"\n"
                                     "log debug *Fail to stop [/dev/md2], try again\nsleep 1\n"
                                     "run /sbin/mdadm -S /dev/md2\n"
                                     "log warning *[Info] clean RAID superblock of /dev/md2\n"
                                     "log warning *[Info] Clean RAID superblock on '/dev/sda1'\n"
                                     "run /sbin/mdadm --zero-superblock /dev/sda1\n"
                                     "run /sbin/mdadm --zero-superblock /dev/sda3\n"
                                     "run /bin/mkdir -p /run/space/lock")));
    EXPECT_EQ(result.record.count("run /sbin/mdadm -E /dev/sda2"), 0);
    EXPECT_EQ(result.record.count("run /sbin/mdadm --zero*"), 2);
    EXPECT_EQ(result.record.count("run /bin/umount*"), 1);
    EXPECT_FALSE(box.exists("/mnt/snap shot"));
    EXPECT_EQ(box.read_file("/usr/norv/etc/datascrubbing.conf"), "[md3]\na=2\n");
    EXPECT_EQ(box.read_file("/run/space/datascrubbingmd.conf"), "datascrubbingmdlist=\"md20,md3\"\n");
    EXPECT_EQ(box.mode("/run/space/lock/action_data_scrubbing_conf.lock"), 0644U);
}

// The array does not stop, or the superblock of its first member cannot be wiped: what comes behind is left undone.
TEST(Raidtool, DestroyGivesUp)
{
    const std::string stop = "run /sbin/mdadm -S /dev/md2\n";
    const struct {
        const char *failing;
        int stops;
        std::string record;
    } kCases[] = {
        {"-S *", 3, stop + "sleep 1\n" + stop + "sleep 1\n" + stop + "log debug *Reach RAID stop retry limit"},
        {"--zero-superblock /dev/sda1", 1, stop + "log debug *Failed to zero RAID superblock '/dev/sda1'"},
    };
    for (const auto &[failing, stops, record] : kCases) {
        Machine box;
        box.program("/sbin/pvs", {{.output = "  /dev/md2:vg1:lv:\n"}});
        box.remove("/proc/mounts");
        box.program("/sbin/mdadm", {{.args = failing, .exit_status = 1}, {.args = "-E *", .output = "UUID : u\n"}});
        array_make(box, 1, "sda3=in_sync");
        driver_answers(box, {0, 0, 0}, 0);
        box.file("/proc/partitions", "major\n\n 8 1 9 sda1\n 8 3 9 sda3\n");
        const Result result = box.run({"raidtool", "destroy", "2"});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, "Found LVM on /dev/md2, remove it \n");
        EXPECT_TRUE(result.record.in_order(lines("log debug *Failed to open /proc/mounts\nsleep 3\n" + record)));
        EXPECT_EQ(result.record.count("run /sbin/mdadm -S *"), stops);
        EXPECT_EQ(result.record.count("run /sbin/mdadm --zero-superblock /dev/sda3"), 0);
        EXPECT_EQ(result.record.count("run /bin/mkdir*"), 0);
    }
}

} // namespace

// raidtool on machines whose disks and arrays are told by stand-ins.
#include <algorithm>
#include <climits>
#include <csignal>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "build_paths.h"
#include "tests/support/rows.h"

namespace
{

constexpr const char *kPlan = "/bin/norv-plan";
constexpr const char *kDefaults = "/etc.defaults/norvinfo.conf";
constexpr const char *kUsage = "usage:\n\traidtool destroy <RAID ID> \n\traidtool status <RAID ID> \n"
                               "\traidtool newvol \n\traidtool initsys \n\traidtool initsys-dd ";

std::string words_of(const std::vector<std::uint32_t> &values)
{
    return {reinterpret_cast<const char *>(values.data()), values.size() * 4};
}
std::string long_words(const std::vector<std::uint64_t> &values)
{
    return {reinterpret_cast<const char *>(values.data()), values.size() * 8};
}

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

    // A disk, blank or of a layout (-1: blank), with metadata on these partitions.
    void disk(const std::string &name, int version = -1, const std::string &members = "")
    {
        directory("/sys/block/" + name);
        device("/dev/" + name, 1ULL << 40);
        listed_ += "   8        0 1073741824 " + name + "\n";
        for (const Layout &layout : kLayouts)
            for (int n = 0; n < 2 && layout.version == version; n++) {
                const std::string partition = name + std::to_string(n + 1);
                const std::string start = std::to_string(layout.start[n]), size = std::to_string(layout.size[n]);
                file("/sys/block/" + name + "/" + partition + "/start", start + "\n");
                file("/sys/block/" + name + "/" + partition + "/size", size + "\n");
                program("/sbin/sfdisk", {{.args = "-l -uS -N" + std::to_string(n + 1) + " /dev/" + name,
                                          .output = "/dev/" + partition + " " + start + " " + size + " fd\n"}});
                listed_ += "   8        1 1000 " + partition + "\n";
            }
        for (const char number : members) {
            const std::string partition = name + number;
            program("/sbin/mdadm", {{.args = "-E /dev/" + partition,
                                     .output = "   Array UUID : u" + std::string(1, number) + "\n Name : n:2\n"}});
            if (number > '2')
                listed_ += "   8        3 1000 " + partition + "\n";
        }
        file("/proc/partitions", "major minor  #blocks  name\n\n" + listed_);
    }
    // Disks as rows tell them: "sda sdb=0 sdc=8:123" are a blank one, one of no layout, one of layout 8 with metadata.
    void disks(const std::string &text)
    {
        for (const std::string &word : words(text)) {
            const size_t equal = word.find('='), colon = word.find(':');
            disk(word.substr(0, equal), equal == word.npos ? -1 : atoi(word.c_str() + equal + 1),
                 colon == word.npos ? "" : word.substr(colon + 1));
        }
    }
    // What was done to disks and arrays, one line each; questions left out.
    [[nodiscard]] static std::string done(const Result &result)
    {
        std::string lines;
        for (const std::string &line : result.record.lines)
            if ((line.starts_with("run /sbin") || line.starts_with("run /bin/norvdd") || line.starts_with("sleep")) &&
                line.find(" -E ") == std::string::npos && line.find(" -l -uS ") == std::string::npos)
                lines += line.substr(line.starts_with("run ") ? 4 : 0) + "\n";
        return lines;
    }
    // The shell lines, as they were given.
    [[nodiscard]] std::string shell() const
    {
        std::string lines;
        for (const ProgramCall &call : calls("/bin/sh"))
            lines += call.args.back() + "\n";
        return lines;
    }

  private:
    std::string listed_;
};

std::string format_done(const std::string &disk, bool whole = true, int version = 8)
{
    const std::string start = version == 7 ? "256" : version == 9 ? "8192" : version == 1 ? "63" : "2048";
    const std::string size = version == 9 ? "16777216" : version == 1 ? "1574307" : "4980480";
    const std::string swap = version == 1 ? "787185" : "4194304";
    return (whole ? "/sbin/sfdisk --fast-delete -1 /dev/" + disk + "\n/sbin/sfdisk -M1 /dev/" + disk + "\n"
                  : "/sbin/sfdisk --fast-delete 1:2 /dev/" + disk + "\n") +
           "/sbin/sfdisk -M1 /dev/" + disk + "\n/sbin/sfdisk -N1 -uS -q -f -j" + start + " -z" + size +
           " -tfd -F /dev/" + disk + "\n/sbin/sfdisk -N2 -uS -q -f -j0 -z" + swap + " -tfd -F /dev/" + disk + "\n";
}
// What was done to one disk, of what was done to all.
std::string of_disk(const std::string &lines, const std::string &disk)
{
    std::string found;
    for (size_t at = 0, end = 0; (end = lines.find('\n', at)) != std::string::npos; at = end + 1)
        if (lines.substr(at, end - at).ends_with("/dev/" + disk))
            found += lines.substr(at, end - at + 1);
    return found;
}

TEST(Raidtool, Outcomes)
{
    const std::string usage = kUsage, missing = "parameters not enough\n" + usage;
    const std::string kNoDisk = "log err *No disk to create system and swap partition, initsys fail!";
    const std::string kTwoHeads = "support_dual_head=\"yes\"\nesataportcfg=\"1\"\n";
    const auto create = [](const std::string &rest) { return "/sbin/mdadm -C /dev/md" + rest + "> /dev/null 2>&1\n"; };
    const auto arrays = [&](const std::string &options, const std::string &disks, const std::string &places) {
        std::string shell;
        for (const char *array : {"0", "1"}) {
            std::string members;
            for (const std::string &disk : words(disks))
                members += "/dev/" + disk + (array[0] == '0' ? "1 " : "2 ");
            shell += create(array + (" -e 0.9 -amd -R -l1 " + options) + members + places);
        }
        return shell;
    };
    std::string missing_60; // past 255 characters it is cut in the middle of a word
    while (missing_60.size() < 255)
        missing_60 += " missing";
    missing_60.resize(255);
    const auto with_dd = [&](int exit_status) { return program("/bin/norvdd", {.exit_status = exit_status}); };
    const std::string dd_shell = "/bin/norvdd /dev/sda1 /dev/sdb1  /dev/sda2 /dev/sdb2  > /dev/null 2>&1\n" +
                                 arrays(" -n4 ", "sda sdb", "  missing missing");
    const std::string inited = "log err *system inited on [/dev/sda1 *";
    const struct {
        const char *command;
        std::string keys, disks;
        int exit_status;
        std::string out, shell = "", log = "";
        Change change = {};
        const char *wiped = ""; // partitions whose metadata goes
    } kCases[] = {
        {"", "", "", 1, usage},
        {"initsy", "", "", 1, "command not recognized\n" + usage},
        {"destroy", "", "", 1, missing},
        {"destroy 2 3", "", "", 1, missing},
        {"status", "", "", 1, missing},
        {"newvol now", "", "", 1, usage},

        {"initsys", "", "", 1, "", "", "log err *Failed to find partition layout"},
        {"initsys", "maxdisks=0\n", "sda", 1, "", "", kNoDisk, kNoChange, "/dev/sda1 /dev/sda2"},
        {"initsys-dd", "", "sda", 1, "", "/bin/norvdd   > /dev/null 2>&1\n", kNoDisk, kNoChange, "/dev/sda1 /dev/sda2"},
        {"initsys", "maxdisks=4\npartition_curr_version=4\n", "sda", 1, "", "",
         "log err *Failed to create system partition of sda, newlayout=4, errno=0x*"},
        {"initsys-hdseries", "maxdisks=4\n", "sda", 1, "", "",
         "log err *Failed to initsys-system-disk, not member of HD series."},
        {"initsys-dd", "maxdisks=4\n", "sda sdb", 0, "", dd_shell, inited, with_dd(0)},
        {"initsys-dd", "maxdisks=4\n", "sda sdb", 0, "system init with norvdd failed\n", dd_shell, inited, with_dd(3)},
        {"initsys", "maxdisks=4\n", "sda sdb", 0, "", arrays(" -n4 ", "sda sdb", "  missing missing"), inited},
        {"initsys", "maxdisks=4\n", "sda", 0, "", arrays("-f -n4 ", "sda", "  missing missing missing"), inited},
        {"initsys", "maxdisks=4\nmax_sys_raid_disks=1\n", "sda", 0, "", arrays("-f -n1 ", "sda", " "), inited},
        {"initsys", "max_sys_raid_disks=2\n", "sda sdb sdc", 0, "", arrays(" -n2 ", "sda sdb", " "), inited, kNoChange,
         "/dev/sdc1 /dev/sdc2"},
        {"initsys", "max_sys_raid_disks=60\n", "sda", 0, "", arrays("-f -n60 ", "sda", " " + missing_60), inited},

        // How many disks are to be formatted, and which.
        {"enumformatalldisks", "", "sda sdb", 2, "1 2 "},
        {"enumformatalldisks", "", "sda sdb=8:123 sdc=0 sdd=8", 2, "1 4 "}, // beside one that keeps data
        {"enumformatalldisks", "", "sda=8:123", 0, ""},
        {"enumformatalldisks", "", "sda=1:3 sdb=8:3 sdc=0", 3, "1 2 3 ", "", "log err *Failed to get format type"},
        {"enumformatalldisks_indualhead_install", "", "sda", 1, "1 "},
        {"enumformatalldisks", "", "", 1, ""},
        {"enumformatalldisks", kTwoHeads, "sdaa", 1, "27 "},
        {"enumformatalldisks_indualhead_install", kTwoHeads, "sdaa", 1, "all"},
        {"enumformatalldisks", "support_install_only_dev=\"yes\"\n", "sysdx", 1, "0 ", "",
         "log err *DiskPathParse(sysdx) fail"},

        {"newvol", "maxdisks=4\n", "", 1, "No disk to create RAID... "},
        {"newvol", "maxdisks=4\n", "sda", 0, "Creating RAID 1 volume... ", create("2 -amd -R -l1 -f -n1 /dev/sda3 ")},
        {"newvol", "maxdisks=4\n", "sda sdb", 0, "Creating RAID 1 volume... ",
         create("2 -amd -R -l1  -n2 /dev/sda3 /dev/sdb3 ")},
        {"newvol", "maxdisks=4\n", "sda sdb sdc", 0, "Creating RAID 5 volume... ",
         create("2 -amd -R -l5  -n3 /dev/sda3 /dev/sdb3 /dev/sdc3 ")},
        {"newvol", "maxdisks=4\n", "sda sdb", 0, "Creating RAID 0 volume... \n",
         create("2 -amd -R -l0  -n2 /dev/sda3 /dev/sdb3 "), "", file("/tmp/raid.5") + file("/tmp/raid.0")},
        {"newvol", "maxdisks=4\n", "sda sdb sdc", 0, "Creating RAID 1 volume... \n",
         create("2 -amd -R -l1  -n3 /dev/sda3 /dev/sdb3 /dev/sdc3 "), "", file("/tmp/raid.5") + file("/tmp/raid.1")},
        {"newvol", "maxdisks=4\n", "sda sdb", 0, "Creating RAID 5 volume... \n",
         create("2 -amd -R -l5  -n2 /dev/sda3 /dev/sdb3 "), "", file("/tmp/raid.5")},
        {"newvol", "maxdisks=4\n", "sda sdb", 1, "", "",
         "log err *Failed to create data partition of /dev/sdb, errno=0x2A00",
         program("/sbin/sfdisk", {.args = "-N3 * /dev/sdb", .exit_status = 1})},
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
        EXPECT_EQ(box.shell(), row.shell);
        EXPECT_TRUE(!row.out.ends_with(usage) || box.programs_called().empty());
        EXPECT_EQ(result.record.count(row.log), row.log.empty() ? 0 : 1) << result.record.text();
        std::string wiped;
        for (const std::string &partition : words(row.wiped))
            wiped += "run /sbin/mdadm --zero-superblock " + partition + "\n";
        EXPECT_EQ(result.record.text("run /sbin/mdadm --zero*"), wiped);
        if (row.log == inited) {
            EXPECT_TRUE(result.record.in_order(
                {"sleep 3", "run /sbin/mdadm -C /dev/md0 *", "sleep 3", "run /sbin/mdadm -C /dev/md1 *", inited}));
            for (const std::string &disk : words(row.disks))
                EXPECT_EQ(of_disk(Machine::done(result), disk), format_done(disk));
        }
        std::string volumes;
        for (const std::string &disk : words(std::string(row.command) == "newvol" ? row.disks : ""))
            volumes += "/sbin/sfdisk --fast-delete 3:128 /dev/" + disk +
                       "\n/sbin/sfdisk -N3 '' -uS -q -f -j260352 -z-1 -tfd -F /dev/" + disk + "\n";
        EXPECT_TRUE(Machine::done(result).starts_with(volumes)) << Machine::done(result);
        EXPECT_TRUE(row.command[0] != 'e' || Machine::done(result).empty()) << Machine::done(result);
    }
}

TEST(Raidtool, InitsysGoesOnWithoutTheDiskThatFails)
{
    Machine box;
    box.disks("sda sdb sdc");
    box.program("/sbin/sfdisk", {{.args = "-N2 * /dev/sdb", .exit_status = 5}});
    box.program("/sbin/mdadm", {{.args = "-C *", .exit_status = 1}}); // is told, and shows later
    const Result result = box.run({"raidtool", "initsys"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_TRUE(result.record.in_order(
        {"log err *Failed to create system partition of sdb, newlayout=8, errno=0x2A00",
         "run /sbin/mdadm -C /dev/md0 -e 0.9 -amd -R -l1 -n4 /dev/sda1 /dev/sdc1 missing missing",
         "log err *Failed to create RAID '/dev/md0' on '/dev/sda1 /dev/sdc1 ' ",
         "log err *szCmd=*/sbin/mdadm -C /dev/md0 -e 0.9 -amd -R -l1  -n4 /dev/sda1 /dev/sdc1   missing missing> *",
         "run /sbin/mdadm -C /dev/md1 *"}));
}

TEST(Raidtool, InitsysHdSeries)
{
    Machine box("unique=\"norv_x86_hd60\"\nmax_sys_raid_disks=1\nsupport_install_only_dev=\"yes\"\n");
    box.disk("sysd1");
    box.disk("sysd2");
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

// What is foreseen for a disk: W whole, S system partitions in place, - nothing; and why.
std::string forecast_of(json_object *plan, const std::string &disk)
{
    json_object *disks = json_object_object_get(plan, "disks");
    for (size_t i = 0; i < json_object_array_length(disks); i++) {
        json_object *facts = json_object_array_get_idx(disks, i);
        if (disk != json_object_get_string(json_object_object_get(facts, "disk")))
            continue;
        const bool formatted = json_object_get_boolean(json_object_object_get(facts, "formatted")) != 0;
        const int type = json_object_get_int(json_object_object_get(facts, "type"));
        return std::string(formatted ? type == 1 ? "W " : "S " : "- ") +
               json_object_get_string(json_object_object_get(facts, "reason"));
    }
    return "not told";
}

// What initsys does to each disk tells the type that was found for it. The forecast says the same before, and why.
TEST(Raidtool, FormatTypes)
{
    const struct {
        const char *what;
        const char *disks, *done; // a line each: W whole, S system partitions in place, - nothing; and why
        int made;
        bool force = false;
    } kCases[] = {
        {"of no layout, alone", "sda=0", "S no-layout", 8},
        {"of no layout beside one that keeps data", "sda=0 sdb=8:123", "- no-layout\nS same-layout", 8},
        {"nothing of ours on it", "sda=8 sdb", "W not-ours\nW no-system-partitions", 8},
        {"another layout, not used", "sda=6:1", "W other-layout", 8},
        {"another layout, used", "sda=6:13 sdb=8:13", "- other-layout-used\nS same-layout", 8},
        {"used as partition 5", "sda=6:15 sdb=9:1235", "- other-layout-used\nS same-layout", 9},
        {"the same layout", "sda=9:13", "S same-layout", 9},
        {"layout 7 for 8", "sda=7:123 sdb=8:3", "S same-layout\nS same-layout", 8},
        {"layout 8 for 7 cannot be", "sda=7:3", "S same-layout", 7},
        {"the oldest layout", "sda=1:13", "W oldest-layout", 1},
        {"all of it by force", "sda=8:13 sdb=0", "W forced\nW forced", 8, true},
    };
    for (const auto &[what, disks, done, made, force] : kCases) {
        SCOPED_TRACE(what);
        Machine box;
        box.disks(disks);
        if (force)
            box.file("/.force_clean_all_disk", "");
        const Result told = box.run({kPlan, "--json"});
        EXPECT_EQ(told.exit_status, 0);
        EXPECT_EQ(Machine::done(told), "");
        json_object *plan = json_tokener_parse(told.out.c_str());
        ASSERT_NE(plan, nullptr) << told.out;
        const Result result = box.run({"raidtool", "initsys"});
        EXPECT_EQ(result.exit_status, 0);
        std::string members;
        char letter = 'a';
        for (const std::string &why : lines(done)) {
            const std::string name = std::string("sd") + letter++;
            EXPECT_EQ(of_disk(Machine::done(result), name),
                      why[0] == '-' ? "" : format_done(name, why[0] == 'W', made));
            EXPECT_EQ(forecast_of(plan, name), why);
            members += why[0] == '-' ? "" : "/dev/" + name + "1 ";
        }
        EXPECT_NE(box.shell().find(" -n4 " + members), std::string::npos) << box.shell();
        json_object_put(plan);
    }
}

TEST(Raidtool, ForecastForPeople)
{
    Machine box("maxdisks=5\nmax_sys_raid_disks=2\n");
    box.disk("sda", 8, "123");
    box.disk("sdb", 0);
    box.disk("sdc");
    box.disk("sde");
    box.file("/sys/block/sda/sda3/start", "9437184\n");
    box.file("/sys/block/sda/sda3/size", "1000\n");
    const Result told = box.run({kPlan});
    EXPECT_EQ(told.exit_status, 0);
    EXPECT_EQ(told.out,
              "bay 1: sda, 1024.0 GiB, layout 8\n"
              "  partition 1: sectors 2048 to 4982527, metadata of /dev/md2\n"
              "  partition 2: sectors 4982528 to 9176831, metadata of /dev/md2\n"
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
              "bay 3: sdc, 1024.0 GiB\n"
              "  type 1: it has neither partition 1 nor partition 2\n"
              "  erases all of the disk, keeps nothing\n"
              "  gets system partitions, place 1 of /dev/md0 and /dev/md1\n"
              "bay 5: sde, 1024.0 GiB\n"
              "  type 1: it has neither partition 1 nor partition 2\n"
              "  erases all of the disk, keeps nothing\n"
              "  gets system partitions, but the arrays have no place for it: their metadata is wiped\n"
              "bay 4: empty\n"
              "layout 8, /dev/md0 and /dev/md1 with 2 places, free: none\n");
}

// No disk can take the system: no room before the data, a disk too small, a model without that layout, no disk.
TEST(Raidtool, ForecastOfAFailure)
{
    const struct {
        const char *keys;
        int layout;
        std::uint64_t bytes;
        const char *line;
    } kCases[] = {
        {"maxdisks=4\n", 0, 1ULL << 40, "  no system partitions can be made: partition 3 is in the way\n"},
        {"maxdisks=4\n", -1, 4ULL << 30, "  no system partitions can be made: the disk is too small\n"},
        {"maxdisks=4\npartition_curr_version=4\n", -1, 1ULL << 40,
         "  no system partitions can be made: the model has no layout of this version\n"},
        {"", -1, 1ULL << 40, "but the arrays have no place for it"},
        {"maxdisks=1\n", -2, 0, "bay 1: empty\nno disk can take the system: initsys would fail\n"},
    };
    for (const auto &[keys, layout, bytes, line] : kCases) {
        Machine box(keys);
        if (layout != -2)
            box.disk("sda", layout);
        if (layout == 0)
            box.file("/sys/block/sda/sda3/start", "11000\n");
        if (layout == 0)
            box.file("/sys/block/sda/sda3/size", "1000\n");
        if (bytes != 0)
            box.device("/dev/sda", bytes);
        const Result told = box.run({kPlan});
        EXPECT_EQ(told.exit_status, 1);
        EXPECT_NE(told.out.find(line), std::string::npos) << told.out;
    }
    Machine box;
    EXPECT_EQ(box.run({kPlan, "--help"}).exit_status, 0);
    EXPECT_EQ(box.run({kPlan, "--jason"}).exit_status, 2);
}

// A root block that only systems on isolated disks may use.
TEST(Raidtool, FormatTypeOfAnIncompatibleDisk)
{
    for (const int capability : {1, 2}) {
        Machine box;
        box.disk("sda", 8, "123");
        std::string content(300000, '\0');
        content.replace(256000, 19, "NORVESSA_ROOT_BLOCK");
        content[256000 + 67] = 3;
        content.replace(256000 + 68, 8, std::string("\0\0\0\0\0\4\0\0", 8));
        content[262144 + 103] = static_cast<char>(capability);
        box.file("/dev/sda", content);
        const Result result = box.run({"raidtool", "initsys"});
        EXPECT_EQ(of_disk(Machine::done(result), "sda"), format_done("sda", capability == 2)) << result.record.text();
    }
}

// sda's own partitions tell nothing, but "/dev/sdaa3" holds "/dev/sda".
TEST(Raidtool, FormatTypeGoesByASubstring)
{
    Machine box;
    box.disk("sda", 8);
    box.disk("sdaa", 8, "3");
    const Result result = box.run({"raidtool", "initsys"});
    EXPECT_EQ(result.record.count("run /sbin/mdadm -E /dev/sdaa3"), 1);
    EXPECT_EQ(of_disk(Machine::done(result), "sda"), format_done("sda", false)) << result.record.text();
}

// The first disk's question hangs. The other disk is asked at the same time, and when the first child is killed its
// disk is left alone.
TEST(Raidtool, DisksAreAskedAtTheSameTimeAndACrashLeavesADiskAlone)
{
    Machine box;
    box.program("/sbin/sfdisk", {{.args = "-l -uS -N2 /dev/sda", .stays = true}});
    box.disks("sda sdb");
    Process process = box.start({"raidtool", "initsys"}, {.seconds = 60});
    ASSERT_TRUE(box.wait_for("run /sbin/sfdisk -l -uS -N2 /dev/sda"));
    ASSERT_TRUE(box.wait_for("run /sbin/sfdisk -l -uS -N2 /dev/sdb"));
    EXPECT_EQ(box.record().count("run /sbin/sfdisk -M1 *"), 0);
    pid_t first_child = INT_MAX; // that of the other disk came later
    std::vector<pid_t> doomed;
    for (int tries = 0, quiet = 0; tries < 2000 && quiet < 30; tries++, usleep(10000)) { // the other disk is done
        doomed.clear();
        for (const Sandbox::Running &running : box.processes())
            if (running.name == "sfdisk")
                doomed.push_back(running.pid);
            else if (running.name == "raidtool" && running.pid != process.pid())
                first_child = std::min(first_child, running.pid);
        quiet = doomed.size() == 1 ? quiet + 1 : 0;
    }
    box.signal(first_child, SIGKILL);
    for (const pid_t pid : doomed)
        box.signal(pid, SIGKILL);
    const Result result = process.wait();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.record.count("log err *Child exit not normally, pid: * disk: sda"), 1) << result.record.text();
    EXPECT_EQ(of_disk(Machine::done(result), "sda"), "");
    EXPECT_EQ(of_disk(Machine::done(result), "sdb"), format_done("sdb"));
    EXPECT_NE(box.shell().find("-f -n4 /dev/sdb1 "), std::string::npos);
}

// A program of theirs that waits for its own children would wait for ever with the signal blocked.
TEST(Raidtool, ProgramsOfTheChildrenHearOfTheirOwn)
{
    Machine box;
    box.disk("sda");
    box.host_file("/bin/plain_sh", "/bin/sh");
    box.file("/sbin/sfdisk", "#!/bin/plain_sh\ntrap 'echo heard >/tmp/heard' CHLD\n(exit 0) &\nwait\n", 0755);
    box.leaves({"/tmp/heard"});
    EXPECT_EQ(box.run({"raidtool", "enumformatalldisks"}).out, "1 ");
    EXPECT_EQ(box.read_file("/tmp/heard"), "heard\n");
}

TEST(Raidtool, NoChildLeavesADiskAlone)
{
    Machine box;
    box.disks("sda sdb");
    box.call({.call = "fork", .error = EAGAIN, .times = 1});
    const Result result = box.run({"raidtool", "initsys"});
    EXPECT_EQ(result.record.count("log err *Failed to fork."), 1);
    EXPECT_EQ(of_disk(Machine::done(result), "sda"), "");
    EXPECT_EQ(of_disk(Machine::done(result), "sdb"), format_done("sdb"));
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
            box.disk({'s', 'd', static_cast<char>('a' + i / 26), static_cast<char>('a' + i % 26)});
        const Result result = box.run({"raidtool", "newvol"});
        EXPECT_EQ(result.exit_status, exit_status);
        EXPECT_EQ(result.record.count("log err *Get * disks, more than raid group split unit"), told);
        EXPECT_EQ(box.shell().find(" -n" + std::to_string(disks) + " /dev/sdaa3 ") != std::string::npos,
                  exit_status == 0);
        EXPECT_EQ(result.record.count("log err *Too many disks for one array, /dev/sdbu3 does not fit"), exit_status);
    }
}

// An array as the kernel tells of it, with its members' names and states: "sda3=in_sync sdb3=spare".
void array_make(Sandbox &box, std::uint32_t level, const char *members = "sda1=in_sync")
{
    box.device("/dev/md2", 3ULL << 20);
    std::vector<std::uint32_t> info(18);
    info[0] = 1;
    info[1] = 2;
    info[4] = level;
    info[5] = 1024;
    info[7] = 3;
    box.request({.device = "/dev/md2", .request = 0x80480911, .bytes = words_of(info)});
    for (const std::string &member : words(members)) {
        const std::string folder = "/sys/block/md2/md/dev-" + member.substr(0, member.find('='));
        const std::string state = member.substr(member.find('=') + 1);
        box.file(folder + "/state", state + "\n");
        box.file(folder + "/slot", state == "spare" ? "none\n" : "1\n");
    }
}

// What the driver says of its rebuild and its state.
void driver_answers(Sandbox &box, const std::vector<std::uint64_t> &rebuild, std::uint32_t status)
{
    box.request({.device = "/dev/md2", .request = 0x80180960, .bytes = long_words(rebuild)});
    box.request({.device = "/dev/md2", .request = 0x80040961, .bytes = words_of({status})});
}

TEST(Raidtool, StatusByTheDriver)
{
    const struct {
        std::uint32_t level, status;
        std::vector<std::uint64_t> rebuild;
        const char *head;
    } kCases[] = {
        {1, 0, {0, 0, 0}, "NORMAL, rebuilding: None\nDevice level: RAID 1"},
        {5, 1, {1, 0, 800}, "DEGRADE, rebuilding: Waiting...\nDevice level: RAID 5"},
        {6, 1, {1, 7, 800}, "DEGRADE, rebuilding: Progressing...[\nDevice level: RAID 6"},
        {10, 2, {0, 0, 0}, "CRASHED, rebuilding: None\nDevice level: RAID_10"},
        {static_cast<std::uint32_t>(-1), 3, {0, 0, 0}, "CRASHED, rebuilding: None\nDevice level: JBOD"},
        {45, 0, {0, 0, 0}, "NORMAL, rebuilding: None\nDevice level: RAID_F1"},
        {0, 0, {0, 0, 0}, "NORMAL, rebuilding: None\nDevice level: RAID 0"},
        {7, 0, {0, 0, 0}, "NORMAL, rebuilding: None\nDevice level: "},
    };
    for (const auto &[level, status, rebuild, head] : kCases) {
        Machine box;
        array_make(box, level, "sda3=in_sync sdb3=error sdc3=spare sdd3=spare,x");
        box.directory("/sys/block/md2/md/dev-sde3"); // cannot be read, and is left out
        driver_answers(box, rebuild, status);
        const Result result = box.run({"raidtool", "status", "2"});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, std::string("/dev/md2 is running, status: ") + head +
                                  "\nDevice size: 3 MB (3145728 bytes) \nDisk: \n\t [/dev/sdd3: Rebuilding]\n"
                                  "\t [/dev/sdc3: Spare Disk]\n\t [/dev/sdb3: Failed(Which ma]\n"
                                  "\t [/dev/sda3: Normal]\n\n");
    }
}

// A kernel without the two requests: the same from its files.
TEST(Raidtool, StatusByTheKernelsFiles)
{
    const struct {
        std::uint32_t level;
        const char *files; // what they hold, in turn
        const char *members, *status, *rebuilding;
    } kCases[] = {
        {1, "clean 2 idle none", "sda1=in_sync", "NORMAL", "None"}, // free places of a mirror are no loss
        {1, "active 2 recover '8 / 80'", "a=in_sync b=spare,x", "DEGRADE", "Progressing...["},
        {1, "active 1 resync delayed", "a=in_sync b=faulty", "DEGRADE", "Waiting..."},
        {1, "active 2 idle none", "sda1=faulty", "CRASHED", "None"},
        {5, "clean 1 idle none", "sda1=in_sync", "DEGRADE", "None"},
        {5, "active 2 frozen none", "sda1=in_sync", "CRASHED", "None"},
        {0, "broken", "sda1=in_sync", "CRASHED", "None"},
        {0, "clean", "sda1=in_sync", "NORMAL", "None"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.files);
        Machine box;
        array_make(box, row.level, row.members);
        const std::vector<std::string> names = words("array_state degraded sync_action sync_completed"),
                                       texts = words(row.files);
        for (size_t i = 0; i < texts.size(); i++)
            box.file("/sys/block/md2/md/" + names[i], texts[i] + "\n");
        const Result result = box.run({"raidtool", "status", "2"});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out.substr(0, result.out.find('\n')),
                  std::string("/dev/md2 is running, status: ") + row.status + ", rebuilding: " + row.rebuilding);
    }
}

TEST(Raidtool, AnArrayThatIsNotThere)
{
    const struct {
        bool node;
        unsigned long request; // that fails
        int error;
        const char *log;
        int again; // the unused question
    } kCases[] = {
        {false, 0, 0, nullptr, 0},
        {true, 0x80480911, ENODEV, nullptr, 1},
        {true, 0x80480911, EINTR, nullptr, 0},
        {true, 0x80180960, ENODEV, nullptr, 0},
        {true, 0x80040961, EIO, nullptr, 1},
        {true, 0x80040961, 0, "log debug *unknown raid status, status=9", 1},
    };
    for (const auto &[node, request, error, log, again] : kCases) {
        for (const bool destroy : {false, true}) {
            Machine box;
            box.program("/sbin/pvs");
            if (node) {
                box.request({.device = "/dev/md2",
                             .request = request,
                             .bytes = error == 0 ? words_of({9}) : "",
                             .error = error});
                array_make(box, 1);
                box.request({.device = "/dev/md2", .request = 0x80180960, .bytes = long_words({0, 0, 0})});
            }
            const Result result = box.run({"raidtool", destroy ? "destroy" : "status", "2"});
            EXPECT_EQ(result.exit_status, destroy ? 0 : 1) << request;
            EXPECT_EQ(result.out, destroy ? "Not found /dev/md2 \n" : "RAID /dev/md2 is not found\n");
            EXPECT_EQ(result.record.count("ioctl /dev/md2 0x80040961*"), again) << result.record.text();
            EXPECT_TRUE(log == nullptr || result.record.count(log) == 1) << result.record.text();
            EXPECT_EQ(box.calls("/sbin/mdadm").size(), 0U);
        }
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
    box.program("/sbin/mdadm", {{.args = "-S *", .error = "busy\n", .exit_status = 1, .times = 2}});
    const std::string same = "Array UUID : here\n";
    for (const char *partition : {"sda1", "sda2", "sda3", "sdb3"})
        box.program("/sbin/mdadm", {{.args = std::string("-E /dev/") + partition,
                                     .output = partition == std::string("sdb3") ? "UUID : other\n" : same}});
    array_make(box, 5, "sda3=in_sync");
    driver_answers(box, {0, 0, 0}, 0);
    box.file("/proc/partitions", "major minor  #blocks  name\n\n 8 0 9 sda\n 8 1 9 sda1\n 8 2 9 sda2\n 8 3 9 sda3\n"
                                 " 8 19 9 sdb3\n 9 2 9 md2\n");
    box.file("/usr/norv/etc/datascrubbing.conf", "[md2]\na=1\n[md3]\na=2\n");
    box.file("/run/space/datascrubbingmd.conf", "datascrubbingmdlist=\"md2,md3\"\n");

    const Result result = box.run({"raidtool", "destroy", "2"});

    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.record.in_order({
        "run /sbin/pvs -o pv_name,vg_name,lv_name,origin --noheading --separator :",
        "run /bin/umount -R -A -k '/mnt/snap shot'",
        "sleep 1",
        "run /sbin/lvremove -f /dev/vg1/lvs1",
        "run /sbin/lvremove -f /dev/vg1/lv",
        "run /sbin/vgremove -f /dev/vg1",
        "log debug *Failed to /sbin/vgremove -f /dev/vg1",
        "run /sbin/pvremove -f /dev/md2",
        "run /sbin/mdadm -S /dev/md2",
        "log info *SpaceCommand:command=\"/sbin/mdadm -S /dev/md2\" Error=\"busy \"",
        "log debug *Fail to stop [/dev/md2], try again",
        "sleep 1",
        "run /sbin/mdadm -S /dev/md2",
        "sleep 1",
        "run /sbin/mdadm -S /dev/md2",
        "log warning *[Info] clean RAID superblock of /dev/md2",
        "log warning *[Info] Clean RAID superblock on '/dev/sda1'",
        "run /sbin/mdadm --zero-superblock /dev/sda1",
        "log warning *[Info] Clean RAID superblock on '/dev/sda3'",
        "run /sbin/mdadm --zero-superblock /dev/sda3",
        "run /bin/mkdir -p /run/space/lock",
    }));
    EXPECT_EQ(result.record.count("run /sbin/mdadm -E /dev/sda2"), 0);
    EXPECT_EQ(result.record.count("run /sbin/mdadm --zero*"), 2);
    EXPECT_EQ(result.record.count("run /bin/umount*"), 1);
    EXPECT_FALSE(box.exists("/mnt/snap shot"));
    EXPECT_EQ(box.read_file("/usr/norv/etc/datascrubbing.conf"), "[md3]\na=2\n");
    EXPECT_EQ(box.read_file("/run/space/datascrubbingmd.conf"), "datascrubbingmdlist=\"md3\"\n");
    EXPECT_EQ(box.mode("/run/space/lock/action_data_scrubbing_conf.lock"), 0644U);
}

// The array does not stop, or the superblock of its first member cannot be wiped: what comes behind is left undone.
TEST(Raidtool, DestroyGivesUp)
{
    for (const bool stops : {false, true}) {
        Machine box;
        box.program("/sbin/pvs", {{.output = "  /dev/md2:vg1:lv:\n"}});
        box.remove("/proc/mounts");
        box.program("/sbin/mdadm", {{.args = stops ? "--zero-superblock /dev/sda1" : "-S *", .exit_status = 1},
                                    {.args = "-E *", .output = "UUID : u\n"}});
        array_make(box, 1, "sda3=in_sync");
        driver_answers(box, {0, 0, 0}, 0);
        box.file("/proc/partitions", "major\n\n 8 1 9 sda1\n 8 3 9 sda3\n");
        const Result result = box.run({"raidtool", "destroy", "2"});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, "Found LVM on /dev/md2, remove it \n");
        EXPECT_TRUE(
            result.record.in_order({"log debug *Failed to open /proc/mounts", "sleep 3", "run /sbin/mdadm -S /dev/md2",
                                    stops ? "log debug *Failed to zero RAID superblock '/dev/sda1'"
                                          : "log debug *Reach RAID stop retry limit"}));
        EXPECT_EQ(result.record.count("run /sbin/mdadm -S*"), stops ? 1 : 3);
        EXPECT_EQ(result.record.count("sleep 1"), stops ? 0 : 2);
        EXPECT_EQ(result.record.count("run /sbin/mdadm --zero*"), stops ? 1 : 0);
        EXPECT_EQ(result.record.count("run /bin/mkdir*"), 0);
    }
}

} // namespace

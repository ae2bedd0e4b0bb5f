// Layout versions as the roles tell them, and what the partition tool is asked to do. Calls that no role makes by
// itself are made by this very program, inside the box.
#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "storage/partition_layout.h"
#include "tests/support/sandbox.h"

namespace
{

constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
const std::string kPorts = "internalportcfg=\"ff\"\nusbportcfg=\"1000\"\n";
constexpr char kHdSeries[] = "unique=\"norv_x86_hd60\"\n";

// The tool's answer for one partition.
ProgramRow listed(const std::string &disk, int n, const std::string &columns)
{
    return {.args = "-l -uS -N" + std::to_string(n) + " /dev/" + disk, .output = "/dev/x " + columns + "\n"};
}

void disk_is(Sandbox &box, const std::string &disk, int version)
{
    static constexpr struct {
        int version;
        const char *root, *swap;
    } kLayouts[] = {
        {6, "63 4980087 fd", "4980150 4192965 fd"},
        {8, "2048 4980480 fd", "4982528 4194304 fd"},
        {9, "8192 16777216 fd", "16785408 4194304 fd"},
        {0, "1 2 fd", "3 4 fd"},
    };
    for (const auto &layout : kLayouts)
        if (layout.version == version)
            box.program("/sbin/sfdisk", {listed(disk, 1, layout.root), listed(disk, 2, layout.swap)});
}

TEST(NorvGetMaxPartition, ExitStatus)
{
    static const struct {
        std::string conf;
        int exit_status;
    } kCases[] = {
        {"", 9},
        {"supportraid=\"yes\"\n", 9},
        {"partition_curr_version=\"7\"\n", 9}, // another question
        {"support_buildin_storage=\"yes\"\n", 0},
        {kHdSeries, 1},
    };
    for (const auto &[conf, exit_status] : kCases) {
        Sandbox box;
        box.file(kConf, conf);
        const Result result = box.run({"norvgetmaxpartition"});
        EXPECT_EQ(result.exit_status, exit_status) << conf;
        EXPECT_EQ(result.out + result.err, "");
        EXPECT_EQ(result.record.count("log err *Failed to find curr partitionlayout version: [9]"),
                  exit_status == 0 ? 1 : 0);
    }
}

// Of the system: without arrays that of sda, with them that of the system array's members, the last one's unless one is
// unknown.
TEST(NorvCheckPartition, OfTheSystem)
{
    static const struct {
        std::string conf;
        std::vector<std::string> members; // partitions of md0
        int exit_status;
    } kCases[] = {
        {"", {"sdb1"}, 0}, // sda is RAID by its types, and no layout of a model without is like it
        {"supportraid=\"no\"\n", {"sdb1"}, 0},
        {"supportraid=\"yes\"\n", {"sdb1", "sdc1"}, 9},
        {"supportraid=\"YES\"\n", {"sdb1"}, 8}, // in any case, unlike in the start of every role
        {"supportraid=\"yes\"\n", {"sdb1", "sdx1"}, 0},
        {"supportraid=\"yes\"\n", {"sdx1", "sdb1"}, 0},
        {"supportraid=\"yes\"\n", {}, 0},
        {"supportraid=\"yes\"\nsupportsas=\"yes\"\n", {"sas3p1"}, 9},
        {"supportraid=\"yes\"\nsupport_emmc_boot=\"yes\"\n", {"sdb1"}, 6},
        {"support_emmc_boot=\"yes\"\n", {}, 6},
        {kHdSeries, {"sdh1"}, 1},
        {kHdSeries, {"sdh1", "sdb1"}, 0},
        {kHdSeries, {}, 0},
    };
    for (const auto &[conf, members, exit_status] : kCases) {
        SCOPED_TRACE(conf);
        Sandbox box;
        box.file(kConf, kPorts + conf);
        for (const std::string &member : members)
            box.directory("/sys/block/md0/md/dev-" + member);
        disk_is(box, "sdb", 8);
        disk_is(box, "sdc", 9);
        disk_is(box, "sas3", 9);
        disk_is(box, "sdx", 0);
        box.program("/sbin/sfdisk", {listed("sda", 1, "63 4980087 fd"), listed("sda", 2, "1 1 fd"),
                                     listed("sda", 3, "4980150 4192965 fd"), listed("sda", 4, "9173115 1 fd"),
                                     listed("sdh", 1, "8192 209715200 fd")});
        EXPECT_EQ(box.run({"norvcheckpartition"}).exit_status, exit_status);
    }
}

// Of one disk, whose name may be a path. On a model that boots from eMMC it is not looked at.
TEST(NorvCheckPartition, OfADisk)
{
    static const struct {
        std::string conf, disk;
        std::vector<ProgramRow> rows;
        int exit_status;
    } kCases[] = {
        {"", "sdb", {listed("sdb", 1, "63 530082 83"), listed("sdb", 2, "530145 787185 82")}, 3},
        {"supportraid=\"yes\"\n",
         "/dev/sdb",
         {listed("sdb", 1, "63 530082 83"), listed("sdb", 2, "530145 787185 82")},
         3},
        {"", "sdb", {listed("sdb", 1, "63 530082 83")}, 0},
        {"support_emmc_boot=\"Yes\"\n",
         "sdb",
         {listed("sda", 1, "63 4980087 fd"), listed("sda", 3, "4980150 4192965 fd"), listed("sda", 4, "9400000 8 fd")},
         6},
        {"support_emmc_boot=\"yes\"\n", // behind one to boot from
         "sdb",
         {listed("sda", 1, "9400000 8 83"), listed("sda", 3, "63 4980087 fd"), listed("sda", 4, "4980150 4192965 fd")},
         6},
        {"support_emmc_boot=\"yes\"\n", // the last one must be there, and for an array
         "sda",
         {listed("sda", 1, "63 4980087 fd"), listed("sda", 3, "4980150 4192965 fd")},
         0},
        {"support_emmc_boot=\"yes\"\n",
         "sda",
         {listed("sda", 1, "63 4980087 fd"), listed("sda", 3, "4980150 4192965 fd"), listed("sda", 4, "9400000 8 83")},
         0},
        {"support_emmc_boot=\"yes\"\n",
         "sda",
         {listed("sda", 1, "63 4980087 fd"), listed("sda", 3, "4980150 4192964 fd"), listed("sda", 4, "9400000 8 fd")},
         0},
        {kHdSeries, "sdb", {listed("sdb", 1, "8192 209715200 fd")}, 0}, // only the system's disks are judged by it
    };
    for (const auto &[conf, disk, rows, exit_status] : kCases) {
        SCOPED_TRACE(conf + disk);
        Sandbox box;
        box.file(kConf, kPorts + conf);
        box.program("/sbin/sfdisk", rows);
        const Result result = box.run({"norvcheckpartition", disk});
        EXPECT_EQ(result.exit_status, exit_status);
        EXPECT_EQ(result.out + result.err, "");
    }
}

// A box in which this program runs the test below it with words of its own.
struct CallBox {
    Sandbox box;

    explicit CallBox(const std::string &conf)
    {
        box.file(kConf, kPorts + conf);
        box.host_file("/bin/calls", "/proc/self/exe");
        box.leaves({"/tmp/.not.dualhead"});
    }
    Result call(const std::string &words)
    {
        return box.run({"/bin/calls", "--gtest_also_run_disabled_tests", "--gtest_filter=DISABLED_InTheBox.Call"},
                       {.env = {"PARTITION_CALL=" + words}});
    }
};

TEST(DISABLED_InTheBox, Call)
{
    const char *given = getenv("PARTITION_CALL");
    std::istringstream words(given == nullptr ? "" : given);
    std::string name, disk;
    int what = 0, version = 0, result = -1;
    words >> name;
    if (name == "create") {
        words >> disk >> what;
        const bool has_version = bool(words >> version);
        result = partition_create(disk.c_str(), what, has_version ? &version : nullptr);
    } else if (name == "clean") {
        words >> disk >> what;
        result = partition_clean(disk.c_str(), what);
    } else if (name == "max") {
        words >> what;
        result = partition_layout_get_max(&version, what != 0);
        printf("version %d\n", version);
    }
    fflush(stdout);
    _exit(result & 0xff);
}

TEST(Partition, Create)
{
    static const std::string kLabel = "/sbin/sfdisk -M1 /dev/sdb\n";
    static const struct {
        std::string conf, words;
        int exit_status;
        std::string programs;
    } kCases[] = {
        {"", "create sdb 1 8", 0,
         kLabel + "/sbin/sfdisk -N1 -uS -q -f -j2048 -z4980480 -t83 -F /dev/sdb\n"
                  "/sbin/sfdisk -N2 -uS -q -f -j0 -z4194304 -t82 -F /dev/sdb\n"},
        {"supportraid=\"Yes\"\n", "create /dev/sdb 1 9", 0,
         kLabel + "/sbin/sfdisk -N1 -uS -q -f -j8192 -z16777216 -tfd -F /dev/sdb\n"
                  "/sbin/sfdisk -N2 -uS -q -f -j0 -z4194304 -tfd -F /dev/sdb\n"},
        {"support_buildin_storage=\"yes\"\n", "create sdb 1 7", 0, // the types are the model's
         kLabel + "/sbin/sfdisk -N1 -uS -q -f -j256 -z2097152 -t83 -F /dev/sdb\n"
                  "/sbin/sfdisk -N2 -uS -q -f -j0 -z5105569 -t82 -F /dev/sdb\n"},
        {"", "create sdb 2 7", 0, "/sbin/sfdisk -N3 '' -uS -q -f -j262144 -z-1 -t83 -F /dev/sdb\n"},
        {"supportraid=\"yes\"\n", "create sdb 3 8", 0,
         "/sbin/sfdisk -N3 '' -uS -q -f -j260352 -z-1 -tfd -F /dev/sdb\n"},
        {"partition_curr_version=\"9\"\n", "create sdb 2 0", 0,
         "/sbin/sfdisk -N3 '' -uS -q -f -j262144 -z-1 -t83 -F /dev/sdb\n"},
        {"partition_curr_version=\"10\"\n", "create sdb 2 0", 0,
         "/sbin/sfdisk -N3 '' -uS -q -f -j260352 -z-1 -t83 -F /dev/sdb\n"},
        {"partition_curr_version=\"4\"\n", "create sdb 2 0", 255, ""},
        {"supportraid=\"yes\"\n", "create sdb 1 3", 255, ""}, // no such layout with arrays
        {"", "create sdb 0 8", 255, ""},
        {"", "create sdb 4 8", 255, ""},
        {kHdSeries, "create sysd1 3", 0,
         "/sbin/sfdisk -M1 /dev/sysd1\n/sbin/sfdisk -N1 -uS -q -f -j8192 -z209715200 -tfd -F /dev/sysd1\n"},
        {kHdSeries, "create sysd1 2 8", 0, "/sbin/sfdisk -N3 '' -uS -q -f -j260352 -z-1 -t83 -F /dev/sysd1\n"},
        {"", "create sdb 2", 0, "/sbin/sfdisk -N3 '' -uS -q -f -j16002 -z-1 -t83 -F /dev/sdb\n"}, // as the disk has it
        {"", "create sdc 2", 0,
         "/sbin/sfdisk -N3 '' -uS -q -f -j16002 -z-1 -t83 -F /dev/sdc\n"}, // as the other disk has it
    };
    for (const auto &[conf, words, exit_status, programs] : kCases) {
        SCOPED_TRACE(conf + words);
        CallBox calls(conf);
        for (const auto &[name, text] : std::vector<std::pair<std::string, std::string>>{
                 {"sdb1/start", "63"}, {"sdb1/size", "530082"}, {"sdb2/start", "530145"}, {"sdb2/size", "787185"}})
            calls.box.file("/sys/block/sdb/" + name, text + "\n");
        calls.box.program("/sbin/sfdisk");
        EXPECT_EQ(calls.call(words).exit_status, exit_status);
        EXPECT_EQ(calls.box.programs_called(), programs);
    }
}

TEST(Partition, CreateFails)
{
    static const struct {
        std::string conf, words, failing, log;
        int programs;
    } kCases[] = {
        {"", "create sdb 1 8", "-M1 *", "partition_table_add.cpp:* Failed to add ms-dos signature to /dev/sdb, err=3",
         1},
        {"", "create sdb 1 8", "-N1 *", "partition_create.cpp:* Failed to partition disk /dev/sdb, err=3", 2},
        {"", "create sdb 1 8", "-N2 *",
         "partition_create.cpp:* Failed to [/sbin/sfdisk -N2 -uS -q -f -j0 -z4194304 -t82 -F /dev/sdb], err=3", 3},
        {"", "create sdb 2 8", "-N3 *",
         "partition_create.cpp:* Failed to [/sbin/sfdisk -N3  -uS -q -f -j260352 -z-1 -t83 -F /dev/sdb], err=3", 1},
        {"", "create sdb 1 4", "-", "partition_create.cpp:* Failed to get partition layout: version=4", 0},
    };
    for (const auto &[conf, words, failing, log, programs] : kCases) {
        SCOPED_TRACE(words + failing);
        CallBox calls(conf);
        calls.box.program("/sbin/sfdisk", {{.args = failing, .exit_status = 3}, {}});
        const Result result = calls.call(words);
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_TRUE(result.record.in_order({"log err " + log}));
        EXPECT_EQ(result.record.count("run /sbin/sfdisk*"), programs);
    }
}

TEST(Partition, Clean)
{
    static const struct {
        std::string words, programs;
        int exit_status;
    } kCases[] = {
        {"clean sdb 1", "/sbin/sfdisk --fast-delete 1:2 /dev/sdb\n", 0},
        {"clean sdb 2", "/sbin/sfdisk --fast-delete 3:128 /dev/sdb\n", 0},
        {"clean /dev/sdb 3", "/sbin/sfdisk --fast-delete -1 /dev/sdb\n/sbin/sfdisk -M1 /dev/sdb\n", 0},
        {"clean sdb 0", "", 255},
        {"clean sdb 4", "", 255},
    };
    for (const bool fails : {false, true})
        for (const auto &[words, programs, exit_status] : kCases) {
            SCOPED_TRACE(words);
            CallBox calls("");
            calls.box.program("/sbin/sfdisk", {{.exit_status = fails ? 1 : 0}});
            const Result result = calls.call(words);
            EXPECT_EQ(result.exit_status, exit_status);
            EXPECT_EQ(calls.box.programs_called(), programs);
            EXPECT_EQ(result.record.count(
                          "log debug partition_clean.cpp:* Failed to do '/sbin/sfdisk --fast-delete * /dev/sdb'"),
                      fails && !programs.empty() ? 1 : 0);
        }
}

// What the kernel knows of a disk with this layout, '0' for another system's.
void kernel_sees(Sandbox &box, const std::string &disk, char version)
{
    static constexpr struct {
        char version;
        const char *places[4]; // start and size of partitions 1 and 2
    } kLayouts[] = {
        {'0', {"1", "2", "3", "4"}},
        {'7', {"256", "4980480", "4980736", "4194304"}},
        {'8', {"2048", "4980480", "4982528", "4194304"}},
        {'9', {"8192", "16777216", "16785408", "4194304"}},
    };
    static constexpr const char *kFiles[] = {"1/start", "1/size", "2/start", "2/size"};
    for (const auto &layout : kLayouts)
        for (size_t i = 0; i < 4 && layout.version == version; i++)
            box.file("/sys/block/" + disk + "/" + disk + kFiles[i], std::string(layout.places[i]) + "\n");
}

// Members of the system array first; else the installable disks, with arrays only those that belong to one.
TEST(Partition, GetMax)
{
    static const struct {
        std::string conf;
        std::vector<std::string> members, disks; // disks by name and version: "sda8"
        bool biggest;
        int version;
        bool logged = false;
    } kCases[] = {
        {"", {}, {}, false, 0}, // left alone
        {"", {}, {"sda7", "sdb9"}, false, 7},
        {"", {}, {"sda7", "sdb9", "sdc8"}, true, 9, true},
        {"", {}, {"sda0", "sdb0"}, true, 8},
        {"partition_curr_version=\"9\"\n", {}, {"sda0"}, false, 9},
        {"", {"sdx1", "sdb1"}, {"sda7", "sdb9"}, false, 9},
        {"", {"sdx1"}, {"sda7"}, false, 8},                             // members without a layout: the model's
        {"supportraid=\"yes\"\n", {}, {"sda9", "sdb7"}, true, 7, true}, // sda is in no array
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.conf + std::to_string(row.version));
        CallBox calls(row.conf);
        for (const std::string &member : row.members)
            calls.box.directory("/sys/block/md0/md/dev-" + member);
        for (const std::string &disk : row.disks)
            kernel_sees(calls.box, disk.substr(0, 3), disk[3]);
        calls.box.program("/sbin/sfdisk");
        calls.box.program("/sbin/mdadm", {{.args = "-E /dev/sdb3", .output = "  Array UUID : 1:2:3:4\n"}});
        const Result result = calls.call(row.biggest ? "max 1" : "max 0");
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_NE(result.out.find("version " + std::to_string(row.version) + "\n"), std::string::npos) << result.out;
        EXPECT_EQ(
            result.record.count("log err partition_layout_get_max.cpp:* Choose biggest partition layout version " +
                                std::to_string(row.version) + "."),
            row.logged ? 1 : 0);
    }
}

} // namespace

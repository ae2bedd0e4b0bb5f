// Layout versions as the roles tell them, and what the partition tool is asked to do. Calls that no role makes by
// itself are made by this very program, inside the box.
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "storage/partition_layout.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
const std::string kPorts = "internalportcfg=\"ff\"\nusbportcfg=\"1000\"\n";
constexpr char kHdSeries[] = "unique=\"norv_x86_hd60\"\n";

// The tool's answers: "DISK NUMBER START SIZE TYPE" in each line.
void listed(Sandbox &box, const std::string &partitions)
{
    for (const std::string &line : lines(partitions)) {
        const std::vector<std::string> of = words(line);
        box.program("/sbin/sfdisk", {{.args = "-l -uS -N" + of[1] + " /dev/" + of[0],
                                      .output = "/dev/x " + of[2] + " " + of[3] + " " + of[4] + "\n"}});
    }
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
        const char *members; // partitions of md0
        int exit_status;
    } kCases[] = {
        {"", "sdb1", 0}, // sda is RAID by its types, and no layout of a model without is like it
        {"supportraid=\"no\"\n", "sdb1", 0},
        {"supportraid=\"yes\"\n", "sdb1 sdc1", 9},
        {"supportraid=\"YES\"\n", "sdb1", 8}, // in any case, unlike in the start of every role
        {"supportraid=\"yes\"\n", "sdb1 sdx1", 0},
        {"supportraid=\"yes\"\n", "sdx1 sdb1", 0},
        {"supportraid=\"yes\"\n", "", 0},
        {"supportraid=\"yes\"\nsupportsas=\"yes\"\n", "sas3p1", 9},
        {"supportraid=\"yes\"\nsupport_emmc_boot=\"yes\"\n", "sdb1", 6},
        {"support_emmc_boot=\"yes\"\n", "", 6},
        {kHdSeries, "sdh1", 1},
        {kHdSeries, "sdh1 sdb1", 0},
        {kHdSeries, "", 0},
    };
    for (const auto &[conf, members, exit_status] : kCases) {
        SCOPED_TRACE(conf + members);
        Sandbox box;
        box.file(kConf, kPorts + conf);
        for (const std::string &member : words(members))
            box.directory("/sys/block/md0/md/dev-" + member);
        listed(box, "sdb 1 2048 4980480 fd\nsdb 2 4982528 4194304 fd\n"
                    "sdc 1 8192 16777216 fd\nsdc 2 16785408 4194304 fd\n"
                    "sas3 1 8192 16777216 fd\nsas3 2 16785408 4194304 fd\n"
                    "sdx 1 1 2 fd\nsdx 2 3 4 fd\nsdh 1 8192 209715200 fd\n"
                    "sda 1 63 4980087 fd\nsda 2 1 1 fd\nsda 3 4980150 4192965 fd\nsda 4 9173115 1 fd");
        EXPECT_EQ(box.run({"norvcheckpartition"}).exit_status, exit_status);
    }
}

// Of one disk, whose name may be a path. On a model that boots from eMMC it is not looked at.
TEST(NorvCheckPartition, OfADisk)
{
    static const struct {
        std::string conf, disk;
        const char *partitions;
        int exit_status;
    } kCases[] = {
        {"", "sdb", "sdb 1 63 530082 83\nsdb 2 530145 787185 82", 3},
        {"supportraid=\"yes\"\n", "/dev/sdb", "sdb 1 63 530082 83\nsdb 2 530145 787185 82", 3},
        {"", "sdb", "sdb 1 63 530082 83", 0},
        {"support_emmc_boot=\"Yes\"\n", "sdb", "sda 1 63 4980087 fd\nsda 3 4980150 4192965 fd\nsda 4 9400000 8 fd", 6},
        // behind one to boot from
        {"support_emmc_boot=\"yes\"\n", "sdb", "sda 1 9400000 8 83\nsda 3 63 4980087 fd\nsda 4 4980150 4192965 fd", 6},
        // the last one must be there, and for an array
        {"support_emmc_boot=\"yes\"\n", "sda", "sda 1 63 4980087 fd\nsda 3 4980150 4192965 fd", 0},
        {"support_emmc_boot=\"yes\"\n", "sda", "sda 1 63 4980087 fd\nsda 3 4980150 4192965 fd\nsda 4 9400000 8 83", 0},
        {"support_emmc_boot=\"yes\"\n", "sda", "sda 1 63 4980087 fd\nsda 3 4980150 4192964 fd\nsda 4 9400000 8 fd", 0},
        {kHdSeries, "sdb", "sdb 1 8192 209715200 fd", 0}, // only the system's disks are judged by it
    };
    for (const auto &[conf, disk, partitions, exit_status] : kCases) {
        SCOPED_TRACE(conf + disk);
        Sandbox box;
        box.file(kConf, kPorts + conf);
        listed(box, partitions);
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
    const std::vector<std::string> of = words(given == nullptr ? "none 0 0 0" : given);
    const auto number = [&](size_t word) { return of.size() > word ? atoi(of[word].c_str()) : 0; };
    int version = number(3), result = -1;
    if (of[0] == "create") {
        result = partition_create(of[1].c_str(), number(2), of.size() > 3 ? &version : nullptr);
    } else if (of[0] == "clean") {
        result = partition_clean(of[1].c_str(), number(2));
    } else if (of[0] == "max") {
        result = partition_layout_get_max(&version, number(1) != 0);
        printf("version %d\n", version);
    }
    fflush(stdout);
    _exit(result & 0xff);
}

// What the kernel knows of a disk with this layout, '0' for another system's.
void kernel_sees(Sandbox &box, const std::string &disk, char version)
{
    static constexpr struct {
        char version;
        const char *places[4]; // start and size of partitions 1 and 2
    } kLayouts[] = {
        {'0', {"1", "2", "3", "4"}},
        {'3', {"63", "530082", "530145", "787185"}},
        {'7', {"256", "4980480", "4980736", "4194304"}},
        {'8', {"2048", "4980480", "4982528", "4194304"}},
        {'9', {"8192", "16777216", "16785408", "4194304"}},
    };
    static constexpr const char *kFiles[] = {"1/start", "1/size", "2/start", "2/size"};
    for (const auto &layout : kLayouts)
        for (size_t i = 0; i < 4 && layout.version == version; i++)
            box.file("/sys/block/" + disk + "/" + disk + kFiles[i], std::string(layout.places[i]) + "\n");
}

TEST(Partition, Create)
{
    const auto system = [](const char *root, const char *swap) {
        return std::string("/sbin/sfdisk -M1 /dev/sdb\n/sbin/sfdisk -N1 -uS -q -f ") + root +
               " -F /dev/sdb\n/sbin/sfdisk -N2 -uS -q -f " + swap + " -F /dev/sdb\n";
    };
    const auto data = [](const std::string &start_and_type, const char *disk = "sdb") {
        return "/sbin/sfdisk -N3 '' -uS -q -f -j" + start_and_type + " -F /dev/" + disk + "\n";
    };
    const struct {
        std::string conf, words;
        int exit_status;
        std::string programs;
    } kCases[] = {
        {"", "create sdb 1 8", 0, system("-j2048 -z4980480 -t83", "-j0 -z4194304 -t82")},
        {"supportraid=\"Yes\"\n", "create /dev/sdb 1 9", 0, system("-j8192 -z16777216 -tfd", "-j0 -z4194304 -tfd")},
        {"support_buildin_storage=\"yes\"\n", "create sdb 1 7", 0, // the types are the model's
         system("-j256 -z2097152 -t83", "-j0 -z5105569 -t82")},
        {"", "create sdb 2 7", 0, data("262144 -z-1 -t83")},
        {"supportraid=\"yes\"\n", "create sdb 3 8", 0, data("260352 -z-1 -tfd")},
        {"partition_curr_version=\"9\"\n", "create sdb 2 0", 0, data("262144 -z-1 -t83")},
        {"partition_curr_version=\"10\"\n", "create sdb 2 0", 0, data("260352 -z-1 -t83")},
        {"partition_curr_version=\"4\"\n", "create sdb 2 0", 255, ""},
        {"supportraid=\"yes\"\n", "create sdb 1 3", 255, ""}, // no such layout with arrays
        {"", "create sdb 0 8", 255, ""},
        {"", "create sdb 4 8", 255, ""},
        {kHdSeries, "create sysd1 3", 0,
         "/sbin/sfdisk -M1 /dev/sysd1\n/sbin/sfdisk -N1 -uS -q -f -j8192 -z209715200 -tfd -F /dev/sysd1\n"},
        {kHdSeries, "create sysd1 2 8", 0, data("260352 -z-1 -t83", "sysd1")},
        {"", "create sdb 2", 0, data("16002 -z-1 -t83")},        // as the disk has it
        {"", "create sdc 2", 0, data("16002 -z-1 -t83", "sdc")}, // as the other disk has it
    };
    for (const auto &[conf, words, exit_status, programs] : kCases) {
        SCOPED_TRACE(conf + words);
        CallBox calls(conf);
        kernel_sees(calls.box, "sdb", '3');
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

// Members of the system array first; else the installable disks, with arrays only those that belong to one.
TEST(Partition, GetMax)
{
    static const struct {
        std::string conf;
        const char *members, *disks; // disks by name and version: "sda8"
        bool biggest;
        int version;
        bool logged = false;
    } kCases[] = {
        {"", "", "", false, 0}, // left alone
        {"", "", "sda7 sdb9", false, 7},
        {"", "", "sda7 sdb9 sdc8", true, 9, true},
        {"", "", "sda0 sdb0", true, 8},
        {"partition_curr_version=\"9\"\n", "", "sda0", false, 9},
        {"", "sdx1 sdb1", "sda7 sdb9", false, 9},
        {"", "sdx1", "sda7", false, 8},                            // members without a layout: the model's
        {"supportraid=\"yes\"\n", "", "sda9 sdb7", true, 7, true}, // sda is in no array
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.conf + row.members + row.disks);
        CallBox calls(row.conf);
        for (const std::string &member : words(row.members))
            calls.box.directory("/sys/block/md0/md/dev-" + member);
        for (const std::string &disk : words(row.disks))
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

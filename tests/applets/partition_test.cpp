// Layout versions as the roles tell them.
#include <gtest/gtest.h>
#include <string>

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

// Of one disk, whose name may be a path; else of the system: without arrays that of sda, with them that of the system
// array's members, the last one's unless one is unknown. On a model that boots from eMMC it is that of sda, too.
TEST(NorvCheckPartition, ExitStatus)
{
    constexpr char kEmmc[] = "support_emmc_boot=\"yes\"\n", kRaid[] = "supportraid=\"yes\"\n";
    const std::string three = "sdb 1 63 530082 83\nsdb 2 530145 787185 82", six = "sda 1 63 4980087 fd\nsda 3 4980150 ";
    const std::string many = "sdb 1 2048 4980480 fd\nsdb 2 4982528 4194304 fd\n"
                             "sdc 1 8192 16777216 fd\nsdc 2 16785408 4194304 fd\n"
                             "sas3 1 8192 16777216 fd\nsas3 2 16785408 4194304 fd\n"
                             "sdx 1 1 2 fd\nsdx 2 3 4 fd\nsdh 1 8192 209715200 fd\n"
                             "sda 1 63 4980087 fd\nsda 2 1 1 fd\nsda 3 4980150 4192965 fd\nsda 4 9173115 1 fd";
    const struct {
        std::string conf;
        const char *members; // partitions of md0
        std::string disk, partitions;
        int exit_status;
    } kCases[] = {
        {"", "sdb1", "", many, 0}, // sda is RAID by its types, and no layout of a model without is like it
        {kRaid, "sdb1 sdc1", "", many, 9},
        {"supportraid=\"YES\"\n", "sdb1", "", many, 8}, // in any case, unlike in the start of every role
        {kRaid, "sdb1 sdx1", "", many, 0},
        {kRaid, "", "", many, 0},
        {std::string(kRaid) + "supportsas=\"yes\"\n", "sas3p1", "", many, 9},
        {std::string(kRaid) + kEmmc, "sdb1", "", many, 6},
        {kHdSeries, "sdh1", "", many, 1},
        {kHdSeries, "sdh1 sdb1", "", many, 0},
        {"", "", "/dev/sdb", three, 3},
        {"", "", "sdb", "sdb 1 63 530082 83", 0},
        {"support_emmc_boot=\"Yes\"\n", "", "sdb", six + "4192965 fd\nsda 4 9400000 8 fd", 6},
        // behind one to boot from
        {kEmmc, "", "sdb", "sda 1 9400000 8 83\nsda 3 63 4980087 fd\nsda 4 4980150 4192965 fd", 6},
        {kEmmc, "", "sda", six + "4192965 fd", 0}, // the last one must be there, and for an array
        {kEmmc, "", "sda", six + "4192965 fd\nsda 4 9400000 8 83", 0},
        {kHdSeries, "", "sdb", "sdb 1 8192 209715200 fd", 0}, // only the system's disks are judged by it
    };
    for (const auto &[conf, members, disk, partitions, exit_status] : kCases) {
        SCOPED_TRACE(conf + members + disk + partitions);
        Sandbox box;
        box.file(kConf, kPorts + conf);
        for (const std::string &member : words(members))
            box.directory("/sys/block/md0/md/dev-" + member);
        listed(box, partitions);
        const Result result = box.run(words(disk, "norvcheckpartition"));
        EXPECT_EQ(result.exit_status, exit_status);
        EXPECT_EQ(result.out + result.err, "");
    }
}

} // namespace

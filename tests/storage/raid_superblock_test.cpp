// What outside programs and the kernel print about arrays and volumes.
#include <gtest/gtest.h>
#include <sstream>

#include "lib/report.h"
#include "storage/lvm.h"
#include "storage/raid_parts.h"
#include "tests/support/containers.h"
#include "tests/support/outcome.h"
#include "tests/support/watched_calls.h"

namespace
{

std::string shown(const RaidSuperblock &block)
{
    std::ostringstream text;
    text << block.major << '.' << block.minor << ' ' << block.uuid << ' ' << block.device << ' ' << block.hostName
         << ' ' << block.level << ' ' << block.raidDevices << ' ' << block.deviceOrder << ' ' << block.events;
    return text.str();
}

TEST(RaidSuperblock, Parse)
{
    const struct {
        std::string text, shown;
        int found = 1;
    } kCases[] = {
        {" Version : 1.2\n Array UUID : 6f7a1c34:0d2e5b91\n Name : norvstation:2  (local to host norvstation)\n"
         " Raid Level : raid5\n Raid Devices : 3\n Device UUID : 1:2\n Events : 18\n Device Role : Active device 1\n",
         "1.2 6f7a1c34:0d2e5b91 /dev/md2 norvstation 4 3 1 18"},
        {" Version : 0.90.00\n UUID : 1c6f:9a20 (local to host norvstation)\n Raid Level : raid1\n"
         "Raid Devices : 4\nPreferred Minor : 1\n Events : 0.17\nthis     2       8       17        1  active\n",
         "0.90 1c6f:9a20 /dev/md1  2 4 2 0"},
        {"UUID : a\nName : 7\nRaid Level : raid7\nDevice Role : spare", // the last line has no end
         "0.0 a /dev/md7  4 0 -1 0"},
        {"UUID : a\nDevice Role : Replacement device 2\nRaid Level : linear\n", "0.0 a   32 0 -2 0"},
        {" Version : 1.2\n Name : a:1\n", "1.2  /dev/md1 a 0 0 -1 0", 0},
        {"mdadm: No md superblock detected on /dev/sda1.\n", "0.0    0 0 -1 0", 0},
        {"UUID : " + std::string(80, 'u') + "\n", "0.0 " + std::string(63, 'u') + "   0 0 -1 0"},
    };
    for (const auto &[text, expected, found] : kCases) {
        RaidSuperblock got;
        ASSERT_EQ(raid_superblock_parse(stream_of(text).get(), &got), found) << text;
        EXPECT_EQ(shown(got), expected) << text;
    }
}

TEST(RaidSuperblock, RefusesWhatMustNotLookLikeThat)
{
    static constexpr const char *kCases[][2] = {
        {"UUID : a\nVersion : 1\n", "bad version format: '1'.\n"},
        {"UUID : a\nName : host:data\n", "Failed to parse 'data'\n"},
        {"UUID : a\nPreferred Minor : none\n", "Failed to parse 'none'\n"},
        {"UUID : a\nName : 99999999999\n", "Failed to parse '99999999999'\n"},
    };
    for (const auto &[text, end] : kCases) {
        const LogCapture log;
        RaidSuperblock superblock;
        EXPECT_EQ(raid_superblock_parse(stream_of(text).get(), &superblock), -1) << text;
        EXPECT_TRUE(log.text.starts_with("7 raid_superblock_get.cpp:") && log.text.ends_with(end)) << log.text;
    }
    for (const char *path : {"/dev/sda", "/dev/md", "/dev/md2p1", "/dev/md99999999999"}) {
        RaidInfo info = {};
        EXPECT_EQ(outcome(raid_info_get, path, &info), (Outcome{-1, 0xbe00})) << path;
    }
}

TEST(RaidMember, StateOfItsWords)
{
    static constexpr std::pair<const char *, int> kCases[] = {
        {"faulty,in_sync", 2}, {"in_sync,write_mostly", 1}, {"blocked, error ,in_sync", 4},
        {"spare", 8},          {"spare,in_sync", 1},        {"", 1},
        {"write_error", 1},    {"in_sync,error,", 4},
    };
    for (const auto &[words, state] : kCases)
        EXPECT_EQ(raid_disk_state_parse(words), state) << words;
}

TEST(Lvm, PathOfTheLastLineThatHoldsTheDevice)
{
    static constexpr struct {
        const char *text;
        int result;
        const char *path;
    } kCases[] = {
        {"  /dev/md2:vg1:volume_1:\n  /dev/md3:vg2:volume_2:\n", 0, "/dev/vg1/volume_1"},
        {"  /dev/md2:vg1:a:\n  /dev/md2:vg1:b:a\n", 0, "/dev/vg1/b"},
        {"  /dev/md20:vg9:c:", 0, "/dev/vg9/c"},
        {"  /dev/md2:vg1::\n", 0, "/dev/vg1/"}, // a group without a volume
        {"/dev/md2:vg1:lv\n", -1, ""},
        {"/dev/md2:0123456789:0123456789:", -1, ""}, // does not fit
    };
    for (const auto &[text, result, path] : kCases) {
        char got[24] = "";
        EXPECT_EQ(lvm_lvpath_parse(stream_of(text).get(), "/dev/md2", got, sizeof(got)), result) << text;
        EXPECT_STREQ(result == 0 ? got : "", path);
    }
}

} // namespace

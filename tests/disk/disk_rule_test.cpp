#include "disk/disk_rule.h"

#include <gtest/gtest.h>

#include "install/disk_rule_update.h"
#include "lib/report.h"
#include "lib/text.h"
#include "tests/external/disk_answers.h"
#include "tests/support/device_answers.h"
#include "tests/support/private_root.h"

namespace
{

std::string database(const std::string &rules)
{
    return R"({"format": 1, "version": "v1", "default": {"selectable": true}, "rules": [)" + rules + "]}\n";
}

DiskIdentity disk_of(const char *model, const char *firmware, uint64_t bytes)
{
    DiskIdentity disk = {};
    text_cut(disk.model, model);
    text_cut(disk.firmware, firmware);
    disk.sectors = bytes / 512;
    return disk;
}

TEST(DiskRule, PatternsMatchWholeTexts)
{
    static constexpr struct {
        const char *pattern, *text;
        bool matches;
    } kCases[] = {
        {"", "a", false},
        {"*", "abc", true},
        {"a*c", "abc", true},
        {"a*c", "acb", false},
        {"*ab*ab", "abxabab", true},
        {"?", "", false},
        {"a?c*", "abcdef", true},
        {"a", "A", false},
        {"*a*a*a*a*a*b", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", false},
    };
    for (const auto &row : kCases)
        EXPECT_EQ(disk_rule_pattern_matches(row.pattern, row.text), row.matches) << row.pattern << " " << row.text;
}

TEST(DiskRule, TheFirstMatchDecides)
{
    const std::string rules = database(R"(
        {"model": "NORV-4T*", "firmware": "AB0?", "action": {"selectable": false, "hint": 1}},
        {"model": "NORV-4T*", "size": "4000", "action": {"selectable": true}},
        {"size": "4???", "action": {"selectable": false}})");
    const struct {
        const char *model, *firmware;
        uint64_t bytes;
        bool is_selectable;
    } cases[] = {
        {"NORV-4T1", "AB01", 4000787030016, false}, {"NORV-4T1", "AB1", 4000787030016, true},
        {"NORV-4T1", "AC01", 4001000000000, false}, {"NORV-4T1", "AC01", 4000999999488, true}, // rounded down
        {"OTHER", "AB01", 4000787030016, false},    {"OTHER", "AB01", 500107862016, true},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(&row - cases);
        DiskRuleAction action;
        ASSERT_EQ(disk_rule_action_find(rules, disk_of(row.model, row.firmware, row.bytes), &action), 0);
        EXPECT_EQ(action.is_selectable, row.is_selectable);
    }
}

TEST(DiskRule, WhatIsNoDatabaseIsNamed)
{
    DiskRuleReport report;
    EXPECT_EQ(disk_rule_check(database(""), &report), 0);
    EXPECT_STREQ(report.version, "v1");
    const struct {
        std::string text;
        const char *fault; // how it begins
    } cases[] = {
        {"", "byte 0: "},
        {"[]", "not an object"},
        {database("").substr(0, 40), "byte 40: "},
        {database("{\"model\": \"\xff\", \"action\": {\"selectable\": true}}"), "byte "},
        {R"({"format": 2, "default": {"selectable": true}, "rules": []})", "format is not 1"},
        {R"({"format": 1, "default": {}, "rules": []})", "no default with a boolean selectable"},
        {database("7"), "rule 1: not an object"},
        {database(R"({"action": {"selectable": true}}, {"model": "A"})"), "rule 2: no action"},
        {database(R"({"action": {"selectable": "false"}})"), "rule 1: no action"},
        {database(R"({"modle": "A", "action": {"selectable": true}})"), "rule 1: unknown key modle"},
        {database(R"({"size": 4000, "action": {"selectable": true}})"), "rule 1: size is not a text"},
        {database("") + std::string(kDiskRuleBytesMax, ' '), "larger than"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(&row - cases);
        DiskRuleAction action;
        EXPECT_EQ(disk_rule_check(row.text, &report), -1);
        EXPECT_EQ(disk_rule_action_find(row.text, disk_of("A", "B", 0), &action), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrBadFormat);
        EXPECT_TRUE(std::string_view(report.fault).starts_with(row.fault)) << report.fault;
    }
}

// The disk is asked, and looked up in the database of its place.
TEST(DiskRule, ADiskIsSelectableWhereItSits)
{
    PrivateRoot root;
    root.write("/etc.defaults/norvinfo.conf", "internalportcfg=\"1\"\nesataportcfg=\"2\"\nusbportcfg=\"4\"\n");
    root.write("/tmp/eunitinfo_1", "EUnitDisks=\"sdb\"\n");
    for (const char *node : {"/dev/sda", "/dev/sdb"})
        root.write(node, "");
    const auto selectable = [&root](const char *disk) {
        return root.run([disk] {
            const DeviceAnswers device({{std::string("\x12\x00", 2), scsi_inquiry_data(0, "NORVDISK", "S8000", "AB01")},
                                        {"\x12\x01\x80", std::string("\0\x80\0\x01Z", 5)}},
                                       8000000000000);
            return disk_is_selectable(disk);
        });
    };
    EXPECT_EQ(selectable("sda"), -1); // no database
    root.write(kDiskRuleHostPath, database(R"({"model": "S8*", "size": "8000", "action": {"selectable": false}})"));
    root.write(kDiskRuleExpansionPath, database(""));
    EXPECT_EQ(selectable("sda"), 0);
    EXPECT_EQ(selectable("sdb"), 1);
    EXPECT_EQ(selectable("sdc"), -1); // not there
}

TEST(DiskRule, ChecksumsAreThoseOfBothDatabases)
{
    const std::string host = "0123456789abcdef0123456789ABCDEF  host_rule.db\n";
    const std::string unit = "ffffffffffffffffffffffffffffffff *eunit_rule.db\n";
    DiskRuleChecksums checksums;
    ASSERT_EQ(disk_rule_checksums_parse(unit + "\n" + host + unit.substr(0, 32) + "  other", &checksums), 0);
    EXPECT_STREQ(checksums.md5[0], "0123456789abcdef0123456789abcdef");
    EXPECT_STREQ(checksums.md5[1], "ffffffffffffffffffffffffffffffff");
    for (const std::string &list : {host, host + unit + host, host + unit.substr(1), host + "g" + unit.substr(1),
                                    host + unit.substr(0, 32), host + unit + "<html>"})
        EXPECT_EQ(disk_rule_checksums_parse(list, &checksums), -1) << list;
}

} // namespace

// Databases of disk rules and lists of their checksums. The input's first byte chooses.
// Covers: disk/disk_rule_action_find.cpp disk/disk_rule_pattern_matches.cpp
// Covers: install/disk_rule_update.cpp(disk_rule_checksums_parse)

#include "install/disk_rule_update.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    if (byte_take(&input) == 'm') {
        DiskRuleChecksums checksums;
        const int result = disk_rule_checksums_parse(input, &checksums);
        check(result != 0 || (strlen(checksums.md5[0]) == 32 && strlen(checksums.md5[1]) == 32), "no whole checksum");
        return;
    }
    static const DiskIdentity disk = {DiskBus::kSata, "", "NORV-4T1", "AB01", "S", 7814037168};
    DiskRuleReport report;
    DiskRuleAction action;
    const int checked = disk_rule_check(input, &report);
    check(checked == disk_rule_action_find(input, disk, &action), "a sound database that does not answer");
    check(checked == 0 || report.fault[0] != '\0', "a fault without a text");
}

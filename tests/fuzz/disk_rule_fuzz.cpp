// Databases of disk rules and lists of their checksums. The input's first byte chooses.
// Covers: disk/disk_rule_action_find.cpp disk/disk_rule_pattern_matches.cpp
// Covers: install/disk_rule_update.cpp(disk_rule_checksums_parse)
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "install/disk_rule_update.h"

static void require(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "disk_rule_fuzz: %s\n", what);
    abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    if (data[0] == 'm') {
        DiskRuleChecksums checksums;
        const int result = disk_rule_checksums_parse(text, &checksums);
        require(result != 0 || (strlen(checksums.md5[0]) == 32 && strlen(checksums.md5[1]) == 32), "no whole checksum");
        return 0;
    }
    static const DiskIdentity disk = {DiskBus::kSata, "", "NORV-4T1", "AB01", "S", 7814037168};
    DiskRuleReport report;
    DiskRuleAction action;
    const int checked = disk_rule_check(text, &report);
    require(checked == disk_rule_action_find(text, disk, &action), "a sound database that does not answer");
    require(checked == 0 || report.fault[0] != '\0', "a fault without a text");
    return 0;
}

// Which disks may be used: the rule databases, and what they say of a disk. docs/disk-rules.md describes the format.
#pragma once

#include <string_view>

#include "external/disk_identity.h"

inline constexpr char kDiskRuleFolder[] = "/var/lib/disk-compatibility";
inline constexpr char kDiskRuleHostPath[] = "/var/lib/disk-compatibility/host_rule.db";       // disks in the appliance
inline constexpr char kDiskRuleExpansionPath[] = "/var/lib/disk-compatibility/eunit_rule.db"; // in expansion units
inline constexpr size_t kDiskRuleBytesMax = 1 << 20;                                          // of one database

struct DiskRuleAction {
    bool is_selectable; // the disk may carry the system
};

// What is to be known of a database beside its rules.
struct DiskRuleReport {
    char version[32]; // cut; empty without one
    char fault[128];  // what is wrong where, when it is no database; cut
};

// Looks a disk up in a database in memory. The first rule that matches decides, else the default. Returns 0; -1 with
// 0x4000 when the text is no rule database, every rule of it looked at.
[[nodiscard]] int disk_rule_action_find(std::string_view database, const DiskIdentity &disk, DiskRuleAction *action);

// The same for a file. -1 also with 0x0d00, 0x0900, 0x0a00 or 0x0200.
[[nodiscard]] int disk_rule_action_get(const char *path, const DiskIdentity &disk, DiskRuleAction *action);

// Whether a text is a rule database. Returns 0; -1 with 0x4000; `report` tells more.
[[nodiscard]] int disk_rule_check(std::string_view database, DiskRuleReport *report);

// Whether a text matches a pattern, in which '*' stands for any text and '?' for any one character.
[[nodiscard]] bool disk_rule_pattern_matches(std::string_view pattern, std::string_view text);

// Whether the rules let a disk carry the system: asks the disk, and looks it up in the database of where it sits.
// Returns 1 or 0; -1, logged, when the disk does not answer or there are no usable rules.
[[nodiscard]] int disk_is_selectable(const char *disk_name);

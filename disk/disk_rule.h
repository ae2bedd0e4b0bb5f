// Which disks may be used: the rule databases, and what they say of a disk. docs/disk-rules.md describes the format.
#pragma once

#include <string_view>

#include "external/disk_identity.h"

inline constexpr char kDiskRuleFolder[] = "/var/lib/disk-compatibility";
inline constexpr char kDiskRuleHostPath[] = "/var/lib/disk-compatibility/host_rule.db";       // disks in the appliance
inline constexpr char kDiskRuleExpansionPath[] = "/var/lib/disk-compatibility/eunit_rule.db"; // in expansion units

struct DiskRuleAction {
    bool is_selectable; // the disk may carry the system
};

// Looks a disk up in a database, which is read whole. The first rule that matches decides, else the default.
// Returns 0; -1 with 0x0d00, 0x0900, 0x0a00, 0x0200, 0x4000 when the file is no rule database.
[[nodiscard]] int disk_rule_action_get(const char *database, const DiskIdentity &disk, DiskRuleAction *action);

// The same for a database in memory.
[[nodiscard]] int disk_rule_action_find(std::string_view database, const DiskIdentity &disk, DiskRuleAction *action);

// Whether the rules let a disk carry the system: asks the disk, and looks it up in the database of where it sits.
// Returns 1 or 0; -1 when the disk does not answer or there are no usable rules.
[[nodiscard]] int disk_is_selectable(const char *disk_name);

// Whether a text is a rule database, every rule of it. Returns 0; -1 with 0x4000 and, in `why`, what is wrong where:
// one line without its end, cut to the room.
[[nodiscard]] int disk_rule_check(std::string_view database, char *why, size_t size);

// Fetching the databases of disk rules. docs/disk-rules.md describes where they come from.
#pragma once

#include <cstddef>
#include <string_view>

#include "disk/disk_rule.h"
#include "lib/file_text.h"

inline constexpr size_t kDiskRuleDatabases = 2;
inline constexpr const char *kDiskRuleNames[kDiskRuleDatabases] = {"host_rule.db", "eunit_rule.db"};

// What an update did, or why it did nothing.
struct DiskRuleUpdate {
    struct Database {
        bool is_new;
        char version[32];
    } databases[kDiskRuleDatabases]; // in the order of kDiskRuleNames
    char fault[256];                 // cut; empty on success
};

// Brings both databases up to what the server has, or leaves both as they are, unless the very naming of the second one
// fails. Returns 0; -1 with the code of what failed and a text for a person in `update`.
[[nodiscard]] int disk_rule_update(DiskRuleUpdate *update);

// Its last step: writes the texts, an empty one apart, into the open folder and then gives them their names, so that
// each database is the old one or the new one. Returns 0; -1 with 0x0900, 0x0b00 or 0x2800 and a text in `update`.
[[nodiscard]] int disk_rule_databases_put(int folder, const std::string_view (&texts)[kDiskRuleDatabases],
                                          DiskRuleUpdate *update);

// The checksums of both databases, as texts of 32 lower-case digits.
struct DiskRuleChecksums {
    char md5[kDiskRuleDatabases][33];
};

// Reads a list of checksums; lines of other names are passed over. Returns 0; -1 with 0x4000 when a line is malformed
// or a database has not just one.
[[nodiscard]] int disk_rule_checksums_parse(std::string_view list, DiskRuleChecksums *checksums);

// Fetches a file by HTTPS, also after redirections, its certificate verified.
//   why  receives the reason of a failure, cut
// Returns 0; -1 with 0x0900 without libcurl, 0x3900, 0x0100 when the file has more than `bytes_max` bytes.
[[nodiscard]] int https_get(const char *url, size_t bytes_max, FileText *text, char *why, size_t why_size);

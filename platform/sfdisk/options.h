// The command line of the partition tool.
#pragma once

#include <cstdint>

#include "platform/sfdisk/table.h"

enum class Action : uint8_t { kList, kEnsureLabel, kAdd, kRemove, kRemoveAll };

struct Options {
    Action action = Action::kList;
    const char *disk_path = nullptr;
    PartitionRequested partition;          // kAdd; for kList its number, 0 for all
    int remove_first = 0, remove_last = 0; // kRemove
};

inline constexpr char kUsage[] = "usage: sfdisk -l [-uS] [-N NUMBER] DISK\n"
                                 "       sfdisk -M1 DISK\n"
                                 "       sfdisk -N NUMBER [-uS] [-q] [-f] [-F] [-j GAP] -z SECTORS|-1 -t HEXTYPE DISK\n"
                                 "       sfdisk --fast-delete FIRST:LAST|-1 DISK\n";

// Words that are the empty string are stepped over; -q, -f and -F change nothing, since the tool neither talks nor
// asks. Returns false when the line is not one of the four forms.
[[nodiscard]] bool options_parse(int argc, char *argv[], Options *options);

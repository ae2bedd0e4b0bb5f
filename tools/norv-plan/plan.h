// What `raidtool initsys` would do to the machine's disks, found out by the decisions that it makes itself. Disks are
// only read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "disk/disk.h"
#include "storage/disk_format_type.h"

struct PlannedPartition {
    int number;
    uint64_t start, sectors;
    std::string array; // that its metadata names, "/dev/md2"; empty without
    bool is_kept;
};

struct PlannedDisk {
    std::string name;
    DiskLocation location; // zeros when it cannot be told
    uint64_t sectors;      // 0: not known
    DiskFormatDecision decision;
    std::string decided_by; // the partition that did, empty when none did
    int type;               // what is done, DiskFormatType: the decision beside those about the other disks
    std::string obstacle;   // why no system partitions can be made on a disk that is to have them; empty: none
    int place;              // in the system arrays, from 0; -1: none
    std::vector<PlannedPartition> partitions;

    [[nodiscard]] bool is_formatted() const { return type != kDiskFormatLeave; }
};

struct Plan {
    int version; // of the layout that system partitions are to have; 0: not known, and nothing is done
    int places;  // of a system array
    int taken;   // of these
    int bays;    // that the model has for its internal disks; 0 where the system goes on others
    std::vector<PlannedDisk> disks; // in the order in which they take their places
};

// Returns 0; -1 when the machine cannot be asked.
[[nodiscard]] int plan_make(Plan *plan);

void plan_print(const Plan &plan);
void plan_print_json(const Plan &plan);

// What the units of raidtool share. Each command takes the process's arguments and returns its exit status.
#pragma once

#include "autocleanup/unique.h"
#include "lib/list.h"

int raidtool_destroy(int argc, char *argv[]);
int raidtool_status(int argc, char *argv[]);
int raidtool_newvol(int argc, char *argv[]);
int raidtool_initsys(int argc, char *argv[]);
int raidtool_initsys_dd(int argc, char *argv[]);
int raidtool_initsys_hdseries(int argc, char *argv[]);
int raidtool_enum_format(int argc, char *argv[]);
int raidtool_enum_format_dual_head(int argc, char *argv[]);

// Says that the arguments do not suffice, and the usage. Returns 1.
int raidtool_parameters_missing();
// Prints the usage. Returns 1.
int raidtool_usage();

// The disks on which the system may be installed, in their order. Empty when they cannot be told.
[[nodiscard]] UniqueList install_disks_get();

// Does the same work for many disks at once, each in a child of its own, all of which are started before the first is
// waited for.
//   work     what a child does with disk `index`; what it returns is its exit status
//   chosen   which disks; NULL: all
//   results  one per disk: receives the exit status, and is left alone where there is none to be had
struct DiskWork {
    const NLIBSZLIST *disks;
    int (*work)(const DiskWork &self, int index);
    bool (*chosen)(const DiskWork &self, int index);
    int version;                  // of the layout, for the work
    const NLIBSZLIST *partitions; // of the machine, NULL when not known
    const int *types;             // of the disks, where they are known
};
// Returns 0; -1 without memory, nothing done.
[[nodiscard]] int disks_work(const DiskWork &task, int *results);
// The format type of every disk, DiskFormatType; 0 where the child that was to find out did not. Results as above.
[[nodiscard]] int format_types_find(const NLIBSZLIST *disks, int version, int *types);

// The system partitions that arrays are made of: their paths, each followed by a blank.
struct MemberList {
    UniqueText text;
    int room = 0;
};
struct SystemMembers {
    MemberList root, swap;
    int count = 0;
    int limit = 0; // places of a system array
};
// Adds partitions 1 and 2 of a disk. Returns 0; -1 without memory or a name for them.
[[nodiscard]] int system_members_add(SystemMembers *members, const char *disk);
// Makes a mirror with as many places as the limit, of which `count` have a member. Takes 3 seconds. Returns 0; -1,
// logged.
int system_array_create(const char *device, const SystemMembers &members, const MemberList &list);

// Linux software RAID: state of arrays from the kernel, of members from `mdadm -E`, and the actions on them.
// An array is named by its path, "/dev/md2". Failures are logged at debug level.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "autocleanup/unique.h"
#include "lib/list.h"

enum RaidLevel : int32_t {
    kRaidLevel0 = 1,
    kRaidLevel1 = 2,
    kRaidLevel5 = 4,
    kRaidLevel6 = 8,
    kRaidLevel10 = 16,
    kRaidLevelLinear = 32,
    kRaidLevelF1 = 64,
};
enum RaidStatus : int32_t { kRaidNormal = 1, kRaidDegraded = 2, kRaidCrashed = 4 };
enum RaidRebuildState : int32_t { kRebuildIdle = 0, kRebuildRunning = 1, kRebuildWaiting = 2 };
enum RaidDiskState : int32_t {
    kRaidDiskNormal = 1,
    kRaidDiskFailed = 2,
    kRaidDiskError = 4, // failed, and the array crashed by it
    kRaidDiskRebuilding = 8,
    kRaidDiskSpare = 16,
    kRaidDiskNone = 32,
};

struct RaidRebuildStatus {
    int32_t state;            // RaidRebuildState
    uint64_t done, total;     // sectors
    int64_t remainingSeconds; // 0: not known
};

struct RaidDisk {
    char path[128];
    int32_t state; // RaidDiskState
    int32_t slot;  // -1: none
    RaidDisk *next;
};
void raid_disks_free(RaidDisk *disks);
using UniqueRaidDisks = Unique<RaidDisk *, nullptr, raid_disks_free>;

struct RaidInfo {
    int32_t number; // N of /dev/mdN
    char path[128];
    char uuid[64];                      // filled by the caller; empty: not known
    int32_t level;                      // RaidLevel; 0 when it is none of these
    int32_t majorVersion, minorVersion; // of the metadata
    int32_t status;                     // RaidStatus
    RaidRebuildStatus rebuild;
    uint64_t size;          // bytes
    uint64_t componentSize; // bytes of one member; 0 for RAID 0 and linear
    int32_t raidDisks, activeDisks, spareDisks;
    UniqueRaidDisks disks; // members, in reverse order of their names
    int32_t crashReason;   // 0; 1 or 2 for the two crash states of the driver
};

// Reads the state of an array into `info`, whose old content goes. Returns 1; 0 when there is no such array, `info`
// empty; -1 with 0xbe00 for a path that is none, 0x0900, 0x0a00, 0x0200, 0xa700 (interrupted) or 0x8000.
[[nodiscard]] int raid_info_get(const char *path, RaidInfo *info);
// Whether the array exists: 1 or 0; -1 as above.
[[nodiscard]] int raid_is_detected(const char *path);
// The state of its rebuild. Results as of raid_info_get.
[[nodiscard]] int raid_rebuild_status_get(const char *path, RaidRebuildStatus *status);

// Reads the file `name` below the array's folder in sysfs, trimmed. Returns 0; 1 when there is no such file, or
// it goes away with its array; -1 with 0x0d00, 0x0900, 0x0a00, or 0x0100 when it does not fit.
[[nodiscard]] int raid_sysfs_get(const char *path, const char *name, char *out, size_t size);

// What the array is doing to its members, of its file `sync_action`.
enum RaidSyncAction : int {
    kSyncIdle,
    kSyncFrozen,
    kSyncReshape,
    kSyncResync,
    kSyncCheck,
    kSyncRepair,
    kSyncRecover,
};
// Returns a RaidSyncAction, kSyncIdle for a level that needs none; -1 as raid_sysfs_get, 0x4000 for an unknown word.
[[nodiscard]] int raid_sync_action_get(const char *path);

// What `mdadm -E` tells of a member.
struct RaidSuperblock {
    int32_t major, minor; // metadata version
    char uuid[64];
    char device[64];    // "/dev/md2"; empty when not told
    char hostName[128]; // empty when not told
    int32_t level;      // RaidLevel
    int32_t raidDevices;
    int32_t deviceOrder; // place in the array; -1 spare or not known, -2 a replacement
    uint64_t events;
};
// Reads the metadata of a member. Returns 1; 0 when there is none; -1 when it cannot be read or understood.
[[nodiscard]] int raid_superblock_get(const char *partition, RaidSuperblock *superblock);
// The parser of that: the same from a listing that is open for reading.
[[nodiscard]] int raid_superblock_parse(FILE *listing, RaidSuperblock *superblock);

// UUID of an array: that of its first member that has metadata. Returns 1; 0 when none has; -1.
[[nodiscard]] int raid_uuid_get(const char *path, char *out, size_t size);

// Whether the data partition of a disk, partition 3 or else 5, belongs to an array, running or not. Returns 1 and the
// array's number, -1 when it is not told; else 0.
[[nodiscard]] int raid_disk_is_used_by_raid(const char *disk, int *number);

enum RaidAssembleUpdate : int { kAssembleNoUpdate = 0, kAssembleLayoutOriginal = 1, kAssembleLayoutAlternate = 2 };
struct RaidAssembleRequest {
    const char *path;
    const char *uuid;    // NULL: any
    bool force;          // also with members that are out of date
    bool invalidBackup;  // also when the backup file of a reshape is no good
    PNLIBSZLIST members; // partition paths
    RaidAssembleUpdate update;
};
// Assembles and runs an array. Returns the raw wait status of mdadm, 0 for success; -1 when it could not be started.
int raid_assemble(const RaidAssembleRequest &request);

// Stops an array. Returns 0; -1 with 0x2a00.
int raid_stop(const char *path);
// Stops an array, trying three times, wipes its superblocks from all partitions that carry its UUID and forgets its
// scrubbing. Returns 0; -1 when it does not stop or a superblock cannot be wiped.
int RaidRemove(const RaidInfo &info);
// Wipes the superblock of one partition. Returns 0; -1 with 0x2a00.
int raid_clean_superblock(const char *partition);
// Wipes the superblocks of all partitions with this UUID, but for partitions 2. Returns 0; -1 at the first failure.
int raid_clean_superblock_by_uuid(const char *uuid);

// How far the repair of an array that began at `begun` (local time in the name) has come, in a file of its own:
// /etc/raid/progress_repair/md2_20240131_235959. Return 0; -1 with 0xfb00, 0x0900, 0x0b00, or 0x4000 where the file
// holds no number.
int raid_repair_progress_set(const char *path, time_t begun, uint64_t sectors);
[[nodiscard]] int raid_repair_progress_get(const char *path, time_t begun, uint64_t *sectors);

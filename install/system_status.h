// What the disks hold, and how it is told to clients.
#pragma once

#include <cstdint>

enum SystemStatus : int { SYSTEM_NORMAL = 1, SYSTEM_CRASHED = 2, SYSTEM_NOT_INSTALLED = 3 };

// How the system on the disks differs from this one.
enum SystemMigration : uint32_t {
    kMigrateEndian = 0x01,
    kMigrateAlignment = 0x02, // of its database is not 8
    kMigratePlatform = 0x04,
    kMigrateBits = 0x08, // from 64 to 32
    kMigrateNvr = 0x10,
    kMigrateRootBlock = 0x20, // one on the boot path is incompatible
};

// What the system on the disks says about itself; cleared each time it is looked at.
struct DiskSysInfo {
    char model[64], version[64], platform[64], admin_port[8];
    unsigned long build_num;
    int endian, bits, max_align;
};

extern int gSysStatus;           // SystemStatus
extern int gblSystemRecoverable; // 1 when the flash can be recovered from the disks; stays 1 until recovery fails
extern int gblCreateDataVol;     // a data volume must be made together with the system
extern int gblUpgradeVol;        // 1 without RAID: what is written to .upgrade_vol
extern char gszUpgradeVolDev[32], gszUpgradeVolMnt[32]; // device that receives a patch, and where it is mounted
extern char gszSysDev[16], gszDataDev[16];              // system partition, first data partition
extern uint32_t ulSysMigratType;                        // SystemMigration bits
extern DiskSysInfo gDiskSysInfo;

inline constexpr char kSystemMountPoint[] = "/tmpRoot"; // where the system partition is looked at

// Looks at the disks and fills the values above. This repairs file systems, mounts the system partition for a while and
// runs the updater that the system on it keeps.
void DetectSysStatus();

// Whether the system disks' partitions are of a layout that this system makes.
[[nodiscard]] bool system_partitions_are_known();

// Fills gDiskSysInfo from the system that is mounted at kSystemMountPoint.
void disk_sys_info_fill();

// SystemMigration bits of the system that is mounted at kSystemMountPoint; gDiskSysInfo tells of it.
[[nodiscard]] uint32_t system_migration_bits();

// The layout version of the system on the disks; 0 when it is unknown.
[[nodiscard]] int GetRootPartitionVersion();

// The whole of `norvupgrade --check-system`: finds the status, from the cache where it can, tells it in
// /tmp/fhost.status and as a word on standard output, and what the disks say of themselves in /tmp/disk_sysinfo.
// Returns 0.
int CheckSysStatus();

// Writes the FhostStatus into /tmp/fhost.status.
void client_status_write(int status);

// Values that are found once: /tmp/root_info.cache, under a lock that is waited for 10 seconds.
// Get returns 1 when found; 0 without a cache; else what NLIBCFileGetKeyValue does; -1 without the lock, logged. Set
// returns 0; -1, logged.
[[nodiscard]] int RootInfoCacheGet(const char *key, char *buffer, int size);
int RootInfoCacheSet(const char *key, const char *value);
// Removes them all. Returns 0, also when there were none; -1, logged.
int root_info_cache_delete();

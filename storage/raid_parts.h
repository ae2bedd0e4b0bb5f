// What the units of arrays share among themselves.
#pragma once

#include <linux/raid/md_u.h> // mdu_array_info_t

#include "storage/raid.h"

inline constexpr char kMdadm[] = "/sbin/mdadm";

// The steps of reading an array return 1; 0 when there is no such array, or no longer; -1 with 0xa700 when the kernel
// was interrupted, else with 0x8000 unless a line says otherwise.

// N of "/dev/mdN"; -1 with 0xbe00, logged.
[[nodiscard]] int raid_path_number(const char *path);
// Opens the array and asks what it is. -1 with 0xbe00 or 0x0900 as well.
[[nodiscard]] int raid_open(const char *path, UniqueFd *fd, mdu_array_info_t *array);
// Sends one request of the array driver.
[[nodiscard]] int raid_request(int fd, unsigned long request, void *answer);
// Whether a request failed because this kernel has none of that number. The driver of the appliance has two of its own,
// without which the same facts are in sysfs.
[[nodiscard]] bool raid_request_is_missing();

// The state of the rebuild, and of the array whose members are known.
[[nodiscard]] int raid_rebuild_read(int fd, const char *path, RaidRebuildStatus *status);
[[nodiscard]] int raid_status_read(int fd, RaidInfo *info);

// The members as sysfs lists them. Returns 0; -1 with 0xbe00, 0x0200 or 0x0a00.
[[nodiscard]] int raid_members_get(const char *path, UniqueRaidDisks *disks);

// The state that the words of a member's file `state` tell; kRaidDiskRebuilding for a spare, which its slot decides.
[[nodiscard]] RaidDiskState raid_disk_state_parse(const char *words);
// What a file `sync_completed` tells, in sectors. Zeros for a word instead of two numbers.
void raid_sync_completed_parse(const char *text, uint64_t *done, uint64_t *total);

// A level as the kernel numbers it; 0 for an unknown one, logged. As `mdadm -E` words it; RAID 5 for an unknown one.
[[nodiscard]] int32_t raid_level_of_number(int number);
[[nodiscard]] int32_t raid_level_of_word(const char *word);

// Takes an array, "md2", out of the files of data scrubbing. Returns 0; -1 when one cannot be changed.
[[nodiscard]] int raid_scrubbing_remove(const char *name);

// What programs and the kernel tell of disks of unknown origin. Each input goes through every reader: `mdadm -E`,
// `pvs`, the partition tool's listing, and the files of an array in sysfs.
// Covers: storage/raid_superblock_get.cpp(raid_superblock_parse) storage/lvm_get_lvpath.cpp(lvm_lvpath_parse)
// Covers: storage/partition_info_get.cpp(partition_line_parse) storage/raid_members_get.cpp(words_hold
// Covers: raid_disk_state_parse) storage/raid_rebuild_status_get.cpp(raid_sync_completed_parse)
#include <cinttypes>

#include "storage/lvm.h"
#include "storage/partition.h"
#include "storage/raid.h"
#include "storage/raid_parts.h"
#include "tests/fuzz/fuzz.h"

namespace
{

void superblock_check(std::string_view text)
{
    const UniqueFile listing = stream_of(text);
    RaidSuperblock superblock;
    const int found = raid_superblock_parse(listing.get(), &superblock);
    check(found >= -1 && found <= 1 && (found != 1 || superblock.uuid[0] != '\0'));
    check_ended(superblock.uuid);
    check_ended(superblock.hostName);
    check(superblock.device[0] == '\0' || strncmp(superblock.device, "/dev/md", 7) == 0);
}

void volume_check(std::string_view text)
{
    const UniqueFile listing = stream_of(text);
    char path[64];
    const int found = lvm_lvpath_parse(listing.get(), "/dev/md2", path, sizeof(path));
    check(found == -1 || (found == 0 && strncmp(path, "/dev/", 5) == 0 && strchr(path, '\n') == nullptr));
}

// What is accepted reads the same when it is printed in plain form.
void partition_check(const std::string &line)
{
    PartitionExtent extent, again;
    if (partition_line_parse(line.c_str(), &extent) != 0)
        return;
    char plain[128];
    snprintf(plain, sizeof(plain), "/dev/sda1 %" PRIu64 " %" PRIu64 " %" PRIx64 "\n", extent.start, extent.size,
             extent.fsId);
    check(extent.size <= INT64_MAX && partition_line_parse(plain, &again) == 0 && again == extent);
}

} // namespace

void fuzz_one(std::string_view input)
{
    const std::string text(input);
    superblock_check(input);
    volume_check(input);
    partition_check(text);
    check(raid_disk_state_parse(text.c_str()) != kRaidDiskFailed || text.find("faulty") != text.npos);
    uint64_t done = 1, total = 1;
    raid_sync_completed_parse(text.c_str(), &done, &total);
    check(done == 0 || text.find('/') != text.npos);
}

// What `mdadm -E` printed about a partition of unknown origin.
// Covers: storage/raid_superblock_get.cpp(raid_superblock_parse)

#include "storage/raid.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    const UniqueFile listing = stream_of(input);
    RaidSuperblock superblock;
    const int found = raid_superblock_parse(listing.get(), &superblock);
    check(found >= -1 && found <= 1 && (found != 1 || superblock.uuid[0] != '\0'));
    check_ended(superblock.uuid);
    check_ended(superblock.hostName);
    check(superblock.device[0] == '\0' || strncmp(superblock.device, "/dev/md", 7) == 0);
}

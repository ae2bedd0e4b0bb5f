// What `mdadm -E` printed about a partition of unknown origin.
// Covers: storage/raid_superblock_get.cpp(raid_superblock_parse)
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "storage/raid.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const UniqueFile listing(fmemopen(const_cast<uint8_t *>(data), size, "r"));
    RaidSuperblock superblock;
    const int found = raid_superblock_parse(listing.get(), &superblock);
    const bool holds = found >= -1 && found <= 1 && (found != 1 || superblock.uuid[0] != '\0') &&
                       memchr(superblock.uuid, '\0', sizeof(superblock.uuid)) != nullptr &&
                       memchr(superblock.hostName, '\0', sizeof(superblock.hostName)) != nullptr &&
                       (superblock.device[0] == '\0' || strncmp(superblock.device, "/dev/md", 7) == 0);
    if (!holds)
        abort();
    return 0;
}

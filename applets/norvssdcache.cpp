#include <cstdio>
#include <cstring>

#include "applets/applets.h"
#include "disk/disk.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"
#include "storage/raid.h"
#include "storage/space_block.h"

namespace
{

// Whether the device counts: an SSD with cache data of a kind that is reported, its partition 1 in an array. 1 or 0;
// -1, logged.
int holds_cache(const char *device, NORVBlock *block)
{
    if (disk_is_ssd(device) == 0) // one that cannot be told counts as one
        return 0;
    if (space_disk_block_get(device, block) < 0) {
        NORV_LOG(LOG_ERR, "Failed to get norvblock on [%s]", device);
        return -1;
    }
    if ((block->spaceType & kSpaceTypeCache) == 0)
        return 0;
    char partition[64];
    if (disk_device_partition_path_get(device, 1, partition, sizeof(partition)) != 0) {
        NORV_LOG(LOG_ERR, "Failed to get partition 1 for %s", device);
        return -1;
    }
    const BlockCache *cache = block->cacheInfo;
    if (cache == nullptr || (cache->mode != 1 && cache->mode != 4 && cache->mode != 5))
        return 0;
    RaidSuperblock superblock;
    return raid_superblock_get(partition, &superblock) == 1 ? 1 : 0;
}

// Appends the disk's number and a blank at `*length`. Returns 0; -1, logged.
int number_append(const char *device, char (&text)[4096], size_t *length)
{
    DiskLocation location = {};
    if (disk_path_parse(device, &location) != 0) {
        NORV_LOG(LOG_ERR, "Failed to get disk id for %s", device);
        return -1;
    }
    const int added = NLIBCStrSnprintf(text + *length, sizeof(text) - *length, "%d ", location.index);
    if (added < 0)
        return -1;
    *length += static_cast<size_t>(added);
    return 0;
}

// Writes what is to be printed. Returns 0; -1, logged.
int caches_list(char (&text)[4096])
{
    UniqueList devices(NLIBCSzListAlloc(1024));
    if (!devices) {
        NORV_LOG(LOG_ERR, "Fail to allocate list");
        return -1;
    }
    const UniqueSpaceBlock block(space_block_alloc());
    if (!block) {
        NORV_LOG(LOG_ERR, "Fail to allocate space block");
        return -1;
    }
    if (NORVDiskSystemInstallationDeviceEnum(devices.address()) < 0) {
        NORV_LOG(LOG_ERR, "Failed to enum system installable devices");
        return -1;
    }
    size_t length = 0;
    for (int i = 0; i < devices.get()->nItem; i++) {
        const char *device = NLIBCSzListGet(devices.get(), i);
        const int held = holds_cache(device, block.get());
        if (held < 0)
            return -1;
        if (held == 0)
            continue;
        if (NLIBCConfSupportDualHead() == 1) {
            text_cut(text, "true");
            return 0;
        }
        if (number_append(device, text, &length) != 0)
            return -1;
    }
    if (length > 0)
        text[length - 1] = '\0';
    return 0;
}

} // namespace

int norvssdcache_main(int argc, char *argv[])
{
    if (argc != 2)
        return -1;
    if (strcmp(argv[1], "--check") != 0 || conf_support_install_only_dev())
        return 0;
    char text[4096] = "";
    const int result = caches_list(text);
    fputs(result == 0 ? text : "-1", stdout);
    return result;
}

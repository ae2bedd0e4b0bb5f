#include "disk/disk.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/report.h"
#include "storage/raid.h"
#include "swap/swap.h"
#include "swap/swap_json.h"
#include "zram/zram.h"

namespace
{

constexpr int kSwapPartition = 2;

// Assembles the array from the swap partition of every disk. Returns 0, also when there is no disk; -1.
int array_assemble(const char *array)
{
    UniqueList disks(NLIBCSzListAlloc(1024)), members(NLIBCSzListAlloc(1024));
    if (!disks || !members || NORVDiskSystemInstallationDeviceEnum(disks.address()) < 0)
        return -1;
    if (disks.get()->nItem == 0)
        return 0;
    RaidSuperblock superblock;
    const char *uuid = nullptr;
    for (int i = 0; i < disks.get()->nItem; i++) {
        char partition[64];
        if (disk_device_partition_path_get(NLIBCSzListGet(disks.get(), i), kSwapPartition, partition,
                                           sizeof(partition)) != 0 ||
            NLIBCSzListPush(members.address(), partition) < 0)
            return -1;
        if (uuid == nullptr && raid_superblock_get(partition, &superblock) == 1)
            uuid = superblock.uuid;
    }
    const int status = raid_assemble({
        .path = array,
        .uuid = uuid,
        .force = false,
        .invalidBackup = false,
        .members = members.get(),
        .update = kAssembleNoUpdate,
    });
    if (status == 0)
        return 0;
    NORV_LOG(LOG_ERR, "Failed to assemble %s, ret = %d", array, status);
    return fail(kErrChild);
}

int disk_swap_start()
{
    SwapStateFile file;
    if (swap_state_open(&file) != 0)
        return -1;
    if (swap_state_is(file.object.get(), kSwapRunning))
        return 0;
    if (swap_state_check(file.object.get(), kSwapStopped) != 0) {
        NORV_LOG(LOG_ERR, "Failed to call NLIBCSwapStateCheck");
        return -1;
    }
    const char *device = swap_device_path();
    if (conf_supportraid() && raid_is_detected(device) != 1 && array_assemble(device) != 0)
        return -1;
    if (file_is_block_device(device) && is_swap_on(device) == 0 && swap_make_and_on(device, 0) != 0)
        return -1;
    return swap_json_file_write(file.object.get(), kSwapRunning);
}

} // namespace

int swap_start()
{
    if (disk_swap_start() != 0)
        return -1;
    if (!NLIBCConfIsYes("support_zram") || NLIBCFileCheckKeyValue(kConfPath, "enable_zram", "yes", 0) != 1)
        return 0;
    return zram_start();
}

#include "lib/conf.h"
#include "lib/report.h"
#include "storage/raid.h"
#include "swap/swap.h"
#include "swap/swap_json.h"
#include "zram/zram.h"

namespace
{

int array_remove(const char *array)
{
    RaidInfo info = {};
    const int found = raid_info_get(array, &info);
    if (found < 0) {
        NORV_LOG(LOG_ERR, "Fail to get RAID info of [%s]", array);
        return -1;
    }
    return found == 0 ? 0 : RaidRemove(info);
}

int disk_swap_stop()
{
    SwapStateFile file;
    if (swap_state_open(&file) != 0)
        return -1;
    if (swap_state_is(file.object.get(), kSwapStopped))
        return 0;
    if (swap_state_check(file.object.get(), kSwapRunning) != 0)
        return -1;
    const char *device = swap_device_path();
    if (is_swap_on(device) == 1 && swap_off(device) != 0)
        return -1;
    if (conf_supportraid() && raid_is_detected(device) == 1 && array_remove(device) != 0)
        return -1;
    return swap_json_file_write(file.object.get(), kSwapStopped);
}

} // namespace

int swap_stop()
{
    if (disk_swap_stop() != 0)
        return -1;
    zram_stop();
    return 0;
}

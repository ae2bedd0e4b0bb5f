#include "applets/ncemd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

#include "external/board_device.h"
#include "lib/conf.h"
#include "lib/globals.h"
#include "lib/report.h"

static constexpr int kLetters = 26;

int gblDiskCount = 0;
NcemdDisk *gblDiskState = nullptr;
int32_t *gblDiskLastState = nullptr;

namespace
{

void led_set(int disk, DiskLedState state)
{
    NORVDiskLed led = {disk + 1, state, 0, nullptr};
    if (board_request(NORVIO_SET_DISK_LED, &led) < 0)
        NORV_LOG(LOG_ERR, "Failed to ioctl, errno=%d, %m", errno);
}

void led_mask_set()
{
    if (board_request_value(NORVIO_MASK_DISK_LED, 1) < 0)
        NORV_LOG(LOG_ERR, "Failed to ioctl Disk led Mask, errno=%d, %m", errno);
}

// Only the first 26 disks have a letter.
bool disk_is_present(int disk)
{
    char path[32];
    struct stat status;
    snprintf(path, sizeof(path), "/sys/block/sd%c", 'a' + disk);
    return gblDiskState[disk].forced != 0 || (disk < kLetters && stat(path, &status) == 0);
}

void disk_show(int disk)
{
    int32_t *state = &gblDiskState[disk].state;
    const int32_t last = gblDiskLastState[disk];
    if (!disk_is_present(disk)) {
        if (last != kDiskAbsent) {
            *state = kDiskAbsent;
            led_set(disk, kDiskLedOff);
        }
    } else if (*state == kDiskFault) {
        if (last != kDiskFault)
            led_set(disk, kDiskLedFault);
    } else if (last != kDiskNormal) {
        *state = kDiskNormal;
        led_set(disk, kDiskLedNormal);
    }
    gblDiskLastState[disk] = *state;
}

} // namespace

void ncemd_disks_init()
{
    gblDiskCount = NLIBCConfSupportDualHead() == 1 ? NLIBCConfMaxSysRaidDisksGet() : NLIBCConfMaxDisksGet();
    if (gblDiskCount <= 0)
        return;
    const auto count = static_cast<size_t>(gblDiskCount);
    gblDiskState = static_cast<NcemdDisk *>(calloc(count, sizeof(NcemdDisk)));
    gblDiskLastState = static_cast<int32_t *>(calloc(count, sizeof(int32_t)));
    if (gblDiskState == nullptr || gblDiskLastState == nullptr) {
        ncemd_disks_free();
        return;
    }
    for (int disk = 0; disk < gblDiskCount; disk++) {
        gblDiskState[disk].state = gblDiskLastState[disk] = kDiskAbsent;
        led_set(disk, kDiskLedOff);
    }
}

void ncemd_disks_free()
{
    free(gblDiskState);
    free(gblDiskLastState);
    gblDiskState = nullptr;
    gblDiskLastState = nullptr;
    gblDiskCount = 0;
}

void ncemd_disk_led_pass()
{
    if (gblSupportRaid != 0 && conf_supportsas()) {
        led_mask_set();
        return;
    }
    for (int disk = 0; disk < gblDiskCount; disk++)
        disk_show(disk);
}

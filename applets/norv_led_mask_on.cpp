#include "applets/applets.h"

#include <cerrno>
#include <cstring>
#include <sys/ioctl.h>

#include "autocleanup/unique.h"
#include "external/board_device.h"
#include "external/hardware_model.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "product.h"

static constexpr char kSlotGroup[14] = "internal_slot"; // its length on the wire counts the NUL

int norv_led_mask_on_main(int /*argc*/, char * /*argv*/[])
{
    const UniqueFd device = board_open();
    if (!device) {
        NORV_LOG(LOG_ERR, "open sybios fail");
        return 0;
    }
    char model[32];
    hardware_model_get(model, sizeof(model));
    const int disks = NLIBCConfMaxDisksGet();
    for (int disk = 1; disk <= disks; disk++) {
        NORVDiskLed led = {disk, kDiskLedOff, sizeof(kSlotGroup), kSlotGroup};
        if (ioctl(device.get(), NORVIO_SET_DISK_LED, &led) < 0)
            NORV_LOG(LOG_ERR, "failed to set disk %d, led as %d", disk, kDiskLedOff);
    }
    if (strcmp(model, kProductNoLedMaskModel) != 0 && ioctl(device.get(), NORVIO_MASK_DISK_LED, 1) < 0)
        NORV_LOG(LOG_ERR, "Failed to ioctl Disk led Mask, errno=%d, %m", errno);
    return 0;
}

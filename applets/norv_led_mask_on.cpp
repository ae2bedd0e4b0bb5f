#include "applets/applets.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/ioctl.h>

#include NORV_PRODUCT_HEADER
#include "autocleanup/unique.h"
#include "external/board_device.h"
#include "lib/conf.h"
#include "lib/io.h"
#include "lib/report.h"

static constexpr char kHardwareVersionPath[] = "/proc/sys/kernel/norv_hw_version";
static constexpr char kSlotGroup[14] = "internal_slot"; // its length on the wire counts the NUL

// Reads the model from the hardware version: what stands before "-j". Empty when it cannot be read.
template <int kRoom> static void model_read(char (&model)[kRoom])
{
    model[0] = '\0';
    const UniqueFile file(fopen(kHardwareVersionPath, "re"));
    if (!file || NLIBCFgets(model, kRoom, file.get()) == nullptr)
        return;
    model[strcspn(model, "\n")] = '\0';
    if (char *suffix = strstr(model, "-j"))
        *suffix = '\0';
}

int norv_led_mask_on_main(int /*argc*/, char * /*argv*/[])
{
    const UniqueFd device = board_open();
    if (!device) {
        NORV_LOG(LOG_ERR, "open sybios fail");
        return 0;
    }
    char model[32];
    model_read(model);
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

#include "external/hw_control.h"

#include <sys/ioctl.h>

#include "external/board_device.h"
#include "lib/report.h"

int NORVHWSetEventSource(int value)
{
    if (value == -1)
        return 0;
    const UniqueFd device = board_open();
    if (!device)
        return -1;
    int32_t source[2] = {value, 0};
    return ioctl(device.get(), NORVIO_SET_EVENT_SOURCE, source) < 0 ? static_cast<int>(fail(kErrSystemCall)) : 0;
}

#include "external/hw_control.h"

#include <cstdio>
#include <sys/ioctl.h>
#include <sys/select.h>

#include "external/board_device.h"
#include "lib/report.h"

int NORVHWGetEvent(int *event, int timeout_seconds)
{
    if (event == nullptr)
        return fail(kErrBadParameter);
    const UniqueFd device = board_open();
    if (!device)
        return -1;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(device.get(), &readable);
    timeval timeout = {timeout_seconds, 0};
    if (select(device.get() + 1, &readable, nullptr, nullptr, timeout_seconds < 0 ? nullptr : &timeout) <= 0)
        return 1;
    if (ioctl(device.get(), NORVIO_GET_EVENT, event) < 0) {
        puts("NORVHWGetEvent: (ERROR) ioctl error");
        return 1;
    }
    return 0;
}

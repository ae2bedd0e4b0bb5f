#include "external/disk_intf_check.h"

#include <algorithm>
#include <iterator>

#include "external/board_device.h"
#include "lib/report.h"

int disk_intf_check(DiskInterfaces *interfaces)
{
    if (interfaces == nullptr)
        return fail(kErrBadParameter);
    *interfaces = {};
    if (board_request(NORVIO_CHECK_DISK_INTERFACE, interfaces) < 0)
        return -1;
    interfaces->count = std::clamp(interfaces->count, 0, static_cast<int32_t>(std::size(interfaces->groups)));
    return 0;
}

#include "external/cpld_info.h"

#include <sys/ioctl.h>

#include "external/board_device.h"
#include "lib/report.h"

int get_cpld_info(NORVCfgInfo *out)
{
    if (out == nullptr) {
        NORV_LOG(LOG_ERR, "Bad Parameter");
        return fail(kErrBadParameter);
    }
    *out = {};
    const UniqueFd device = board_open();
    if (!device)
        return -1;
    for (const BoardRequest request : {NORVIO_GET_CPLD_FIRST, NORVIO_GET_CPLD_SECOND}) {
        int32_t value = 0;
        if (ioctl(device.get(), request, &value) < 0)
            return fail(kErrSystemCall);
    }
    return 0;
}

#include "panel/lcm.h"

#include <unistd.h>

#include "external/hw_control.h"
#include "lib/report.h"

static void last_message_show(unsigned char why)
{
    static constexpr const char *kFirstLines[] = {nullptr, "System Power Off", "System Rebooting"};
    if (why != 1 && why != 2) {
        NORV_LOG(LOG_ERR, "Invalid value form LCM module.");
        return;
    }
    lcm_show(kFirstLines[why], "Please Wait...");
    lcm_command("-Fo");
    sleep(1);
}

void lcm_close()
{
    if (gblLcmFd < 0)
        return;
    NORVHWExternalControl(kHwStatusOff, 0, nullptr, kHwTypeDefault);
    if (const char *shared = lcm_shared_byte(0600))
        last_message_show(static_cast<unsigned char>(*shared));
    close(gblLcmFd);
    gblLcmFd = -1;
    NORV_LOG(LOG_ERR, "close CdcAcm for LCM module.");
}

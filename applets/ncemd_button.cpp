#include "applets/ncemd.h"

#include <cerrno>
#include <sys/ioctl.h>

#include "external/board_device.h"
#include "external/hw_control.h"
#include "lib/report.h"

namespace
{

constexpr int kNoControl = 0;

// What the micro-controller tells of a button, the request that answers it, and the controls that follow.
struct Button {
    char code;
    BoardRequest request;
    bool only_in_button_mode;
    int first_control, second_control;
};
constexpr Button kButtons[] = {
    {0x30, NORVIO_BUTTON_30, false, kHwBeepLong, kHwSystemShutdown},
    {0x60, NORVIO_BUTTON_60, true, kNoControl, kNoControl},
    {0x61, NORVIO_BUTTON_61, false, kHwBeepLong, kNoControl},
};

void button_answer(const Button &button)
{
    {
        const UniqueFd device = board_open();
        if (!device) {
            NORV_LOG_OLD(LOG_ERR, "NcemDoButtonCtrl", "open norvbios error");
            return;
        }
        int32_t scratch = 0;
        if (ioctl(device.get(), button.request, &scratch) < 0)
            NORV_LOG(LOG_ERR, "Failed to ioctl, errno=%d, %m", errno);
    }
    for (const int control : {button.first_control, button.second_control})
        if (control != kNoControl)
            ncemd_control(control);
}

// Serves one event of the button test. `is_orange` is the status LED's state. Returns false at the end of the test.
bool test_event(int event, bool *is_orange)
{
    switch (event) {
    case kHwEventPowerOff:
    case kHwEventButtonReset:
    case kHwEventButtonUsb:
        ncemd_control(*is_orange ? kHwStatusGreen : kHwStatusOrange);
        if (event == kHwEventButtonUsb) {
            ncemd_control(kHwUsbCopyOn);
            ncemd_control(kHwUsbCopyOff);
            ncemd_control(kHwBeepLong);
        }
        *is_orange = !*is_orange;
        return true;
    case kHwEventButtonModeLeave:
        ncemd_control(kHwStatusGreen);
        return false;
    default:
        syslog(LOG_ERR, "NCEMD: events ignored");
        return true;
    }
}

} // namespace

int gblHwFd = -1;
int gblButtonMode = 0;

int ncemd_control(int control)
{
    return NORVHWExternalControl(control, 0, nullptr, kHwTypeDefault);
}

void ncemd_button_check()
{
    if (gblHwFd < 0)
        return;
    MicropExchange exchange = {"", 1};
    if (ioctl(gblHwFd, NORVIO_MICROP_READ_BYTE, &exchange) < 0) {
        NORV_LOG(LOG_ERR, "microP get error\n");
        return;
    }
    for (const Button &button : kButtons)
        if (exchange.text[0] == button.code && (!button.only_in_button_mode || gblButtonMode != 0))
            button_answer(button);
}

void ncemd_button_mode()
{
    const int saved_mode = gblButtonMode;
    gblButtonMode = 1;
    ncemd_control(kHwStatusGreen);
    bool is_orange = false;
    for (bool is_testing = true; is_testing;) {
        int event = 0;
        if (ncemd_event_wait(&event) == 0)
            is_testing = test_event(event, &is_orange);
        if (!is_testing)
            gblButtonMode = saved_mode;
        ncemd_button_check();
        ncemd_signals_report();
    }
}

#include "external/hw_control.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "external/board_device.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/io.h"
#include "lib/report.h"

static constexpr char kDebugFlagPath[] = "/tmp/hwexternalctl_dbg";

namespace
{

struct MicropText {
    int control;
    const char *text;
    char acm;               // byte for the ACM device, 0 for none
    useconds_t pause_first; // microseconds; a beep that is sounding is let end
};

// The USB texts stand crosswise to the names that norv_microp_control gives them.
constexpr MicropText kMicropTexts[] = {
    {kHwPowerLedOn, "4", 0, 0},      {kHwSystemShutdown, "5", 0, 0},
    {kHwUsbCopyOn, "B", 0, 0},       {kHwUsbCopyOff, "@", 0, 0},
    {kHwUsbCopyBlinking, "A", 0, 0}, {kHwStatusGreen, "8", '8', 0},
    {kHwStatusOrange, ":", ':', 0},  {kHwStatusOrangeBlinking, ";", ';', 0},
    {kHwStatusOff, "7", '7', 0},     {kHwStatusGreenBlinking, "9", '9', 0},
    {kHwAlertOn, "LA1", '1', 0},     {kHwAlertBlinking, "LA2", '2', 0},
    {kHwAlertOff, "LA3", '3', 0},    {kHwBeepLong, "3", 0, 1200000},
    {kHwBeepShort, "2", 0, 600000},  {kHwGrantPowerOff, "1", 0, 0},
    {kHwAcRecoveryOn, "q", 0, 0},    {kHwAcRecoveryOff, "p", 0, 0},
    {kHwScheduleOn, "s", 0, 0},      {kHwScheduleOff, "r", 0, 0},
    {kHwFanCheckerOn, "u", 0, 0},    {kHwFanCheckerOff, "t", 0, 0},
};
// Other states, whole ranges of codes by their high byte.
constexpr MicropText kMicropRanges[] = {
    {0x08, "8", 0, 0},
    {0x10, "8", 0, 0},
    {0x09, ";", 0, 0},
    {0x11, ";", 0, 0},
};

template <size_t kRows> const MicropText *row_find(const MicropText (&rows)[kRows], int control)
{
    const auto *row = std::find_if(rows, rows + kRows, [=](const MicropText &r) { return r.control == control; });
    return row == rows + kRows ? nullptr : row;
}

bool type_is_valid(int type)
{
    return (type >= 1 && type <= 8) || (type >= 101 && type <= 104);
}

bool has_acm()
{
    static int cached = -1;
    if (cached < 0)
        cached = NLIBCConfIsYes("support_acm") ? 1 : 0;
    return cached == 1;
}

int send_as_text(int control, const MicropText *row)
{
    if (row == nullptr)
        row = row_find(kMicropRanges, control >> 8);
    if (row == nullptr) {
        syslog(LOG_ERR, "invalid microp command %d", control);
        return fail(kErrBadParameter);
    }
    if (row->pause_first != 0)
        usleep(row->pause_first);
    const UniqueFd device = board_open();
    if (!device) {
        syslog(LOG_ERR, "open norvbios error, error=(%d)%s", errno, strerror(errno));
        return -1;
    }
    const int result = ioctl(device.get(), NORVIO_MICROP_WRITE, row->text);
    if (result < 0) {
        syslog(LOG_ERR, "write to uart2 error, error=(%d)%s", errno, strerror(errno));
        return fail(kErrSystemCall);
    }
    return result;
}

int send_as_request(int control, int length, const char *data)
{
    NORVHWControl record = {control, length, {}};
    if (length > 0)
        memcpy(record.data, data, std::min<size_t>(static_cast<size_t>(length), sizeof(record.data) - 1));
    return board_request(NORVIO_EXTERNAL_CONTROL, &record);
}

int send_to_acm(char byte)
{
    const UniqueFd device(open(kAcmPath, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (device && NLIBCWrite(device.get(), &byte, 1) == 1)
        return 0;
    syslog(LOG_ERR, "open CdcAcm error.");
    return fail(device ? kErrWrite : kErrOpen);
}

} // namespace

int NORVHWExternalControl(int control, int length, const char *data, int type)
{
    if (NLIBCFileIsRegular(kDebugFlagPath))
        NORV_LOG(LOG_ERR, "CheckControlType, type=%d", type);
    if (!type_is_valid(type)) {
        NORV_LOG(LOG_ERR, "CheckControlType failed, type=%d", type);
        return fail(kErrBadParameter);
    }
    if (length != 0 && data == nullptr)
        return fail(kErrBadParameter);
    const MicropText *row = row_find(kMicropTexts, control);
    int result = 0;
    if (length >= 0)
        result = conf_supportuart2() ? send_as_text(control, row) : send_as_request(control, length, data);
    if (row != nullptr && row->acm != 0 && has_acm() && send_to_acm(row->acm) != 0)
        return -1;
    return result;
}

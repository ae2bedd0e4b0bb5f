// What a driver answers to the board's requests. The first byte chooses who asks, the rest is the answer's record.
// Covers: applets/norv_microp_control.cpp(version_find version_print) external/rtc_time.cpp(RtcTimeRead)
// Covers: external/power_schedule_board.cpp(power_schedule_shift set_shift power_schedule_board_read)
// Covers: external/disk_intf_check.cpp
#include <algorithm>
#include <cstdarg>
#include <ctime>
#include <iterator>

#include "applets/applets.h"
#include "external/disk_intf_check.h"
#include "external/power_schedule.h"
#include "external/rtc_time.h"
#include "platform/board/board.h"
#include "tests/fuzz/file_root.h"
#include "tests/fuzz/fuzz.h"

static std::span<const uint8_t> gblAnswer;

// In front of the C library's. A request that carries nothing back succeeds; an answer too short for it fails.
extern "C" int ioctl(int /*fd*/, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *record = va_arg(arguments, void *);
    va_end(arguments);
    const board_request_info *row = board_request_find(static_cast<uint32_t>(request));
    if (row == nullptr)
        return -1;
    if (row->direction != BOARD_OUT && row->direction != BOARD_IN_OUT)
        return 0;
    if (gblAnswer.size() < row->bytes)
        return -1;
    memcpy(record, gblAnswer.data(), row->bytes);
    return 0;
}

namespace
{

void role_run(int (*run)(int argc, char *argv[]), const char *first, const char *second)
{
    char name[] = "role", one[32], two[32];
    snprintf(one, sizeof(one), "%s", first);
    snprintf(two, sizeof(two), "%s", second);
    char *argv[] = {name, one, *second == '\0' ? nullptr : two, nullptr};
    static_cast<void>(run(*second == '\0' ? 2 : 3, argv));
    rewind(stdout);
}

void schedule_ask()
{
    NORVAutoPowerSet set = {};
    if (power_schedule_board_read(&set) != 0 || set.enabled == 0)
        return;
    const int count = std::clamp(set.count, 0, kPowerSchedulesMax);
    for (int i = 0; i < count; i++)
        check(set.entries[i].minute < 60 && (set.entries[i].weekdays & 0x80) == 0);
    role_run(mantool_main, "-auto_poweron_get", "100");
}

void clock_ask()
{
    struct tm now = {};
    if (RtcTimeRead(&now) == 0)
        check(now.tm_mon >= 1 && now.tm_mon <= 12 && now.tm_mday >= 1 && now.tm_mday <= 31);
}

void interfaces_ask()
{
    DiskInterfaces interfaces;
    if (disk_intf_check(&interfaces) == 0)
        check(interfaces.count >= 0 && interfaces.count <= static_cast<int>(std::size(interfaces.groups)));
}

void controller_ask()
{
    role_run(norv_microp_control_main, "MICROP_VERSION_REPORT", "");
}

} // namespace

void fuzz_begin()
{
    setenv("TZ", "CET-1", 1);
    file_root_enter();
    file_root_put("/dev/norvbios", "");
    check(freopen("/dev/null", "w", stdout) != nullptr);
}

void fuzz_one(std::string_view input)
{
    static constexpr void (*kAsk[])() = {schedule_ask, clock_ask, interfaces_ask, controller_ask};
    const auto ask = kAsk[byte_take(&input) % std::size(kAsk)];
    gblAnswer = bytes_of(input);
    ask();
}

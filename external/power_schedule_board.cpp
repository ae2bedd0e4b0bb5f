#include "external/power_schedule.h"

#include <algorithm>
#include <ctime>

#include "external/board_device.h"
#include "external/hw_control.h"
#include "lib/report.h"

static constexpr int kDayMinutes = 24 * 60;

// Minutes by which local time is ahead of universal time now, summer time included.
static int zone_offset_minutes()
{
    const time_t now = time(nullptr);
    tm local = {};
    return localtime_r(&now, &local) == nullptr ? 0 : static_cast<int>(local.tm_gmtoff / 60);
}

void power_schedule_shift(NORVAutoPowerSet::Entry *entry, int minutes)
{
    // One weekday bit at place i moves to place i+1 or i-1; the outer places close the circle.
    static constexpr uint8_t kWeekdays[] = {0x40, 1, 2, 4, 8, 0x10, 0x20, 0x40, 1};
    int total = entry->hour * 60 + entry->minute + minutes;
    int days = 0;
    if (total < 0) {
        total += kDayMinutes;
        days = -1;
    } else if (total >= kDayMinutes) {
        total -= kDayMinutes;
        days = 1;
    }
    uint8_t weekdays = 0;
    for (int day = 1; day <= 7; day++)
        if ((entry->weekdays & kWeekdays[day]) != 0)
            weekdays |= kWeekdays[day + days];
    *entry = {static_cast<uint8_t>(total % 60), static_cast<uint8_t>(total / 60), weekdays};
}

static void set_shift(NORVAutoPowerSet *set, int minutes)
{
    const int count = std::clamp(set->count, 0, kPowerSchedulesMax);
    for (int i = 0; i < count; i++)
        power_schedule_shift(&set->entries[i], minutes);
}

int power_schedule_board_read(NORVAutoPowerSet *set)
{
    if (set == nullptr)
        return fail(kErrBadParameter);
    if (board_request(NORVIO_GET_SCHEDULE, set) < 0)
        return -1;
    if (set->enabled != 0)
        set_shift(set, zone_offset_minutes());
    return 0;
}

int power_schedule_board_write(const NORVAutoPowerSet *set)
{
    if (set == nullptr || set->count < 0 || set->count > kPowerSchedulesMax)
        return fail(kErrBadParameter);
    NORVAutoPowerSet converted = *set;
    if (set->enabled != 0)
        set_shift(&converted, -zone_offset_minutes());
    if (board_request(NORVIO_SET_SCHEDULE, &converted) < 0)
        return -1;
    return NORVHWExternalControl(set->enabled != 0 ? kHwScheduleOn : kHwScheduleOff, 0, nullptr, kHwTypeSchedule) < 0
               ? -1
               : 0;
}

// Times of day at which the machine switches itself on or off: the list in a file, and the board's own list.
#pragma once

#include <cstdint>

inline constexpr int kPowerSchedulesMax = 100;

// One entry of the file. Weekdays are a mask, bit 0 Sunday; hour and minute are local time.
struct NORVPowerSchedule {
    uint8_t enabled, weekdays, hour, minute;
};

// The board's list, as its requests carry it.
struct NORVAutoPowerSet {
    int32_t count;
    int32_t enabled;
    struct Entry {
        uint8_t minute, hour, weekdays;
    } entries[kPowerSchedulesMax];
};
static_assert(sizeof(NORVAutoPowerSet) == 0x134);

enum class PowerScheduleList { kOn, kOff };

// Reads one list of /etc/power_sched.conf into room for `max` entries. Returns how many there are, 0 without a file, at
// most 100.
[[nodiscard]] int power_schedule_read(PowerScheduleList list, NORVPowerSchedule *entries, int max);

// Replaces one list of the file and keeps the other; without any entry left the file is removed. Each entry that comes
// or goes is logged. Returns 0; -1 with 0x0d00, 0x0900, 0x0b00, 0x2a00 or 0x0200, the file as it was.
[[nodiscard]] int power_schedule_write(PowerScheduleList list, const NORVPowerSchedule *entries, int count);

// Reads and writes the board's list. Its clock runs in universal time; the entries here are in local time. Writing also
// tells the board whether to heed the list. Return 0; -1 with 0x0d00, 0x0900 or 0x8100.
[[nodiscard]] int power_schedule_board_read(NORVAutoPowerSet *set);
[[nodiscard]] int power_schedule_board_write(const NORVAutoPowerSet *set);

// Shifts an entry by minutes; when that leaves the day, the weekdays move along. For the two calls above.
void power_schedule_shift(NORVAutoPowerSet::Entry *entry, int minutes);

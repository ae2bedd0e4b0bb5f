#include "external/power_schedule.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/outcome.h"
#include "tests/support/private_root.h"

namespace
{

constexpr uint8_t kSunday = 1, kMonday = 2, kFriday = 0x20, kSaturday = 0x40;
using Entry = NORVAutoPowerSet::Entry; // minute, hour, weekdays

bool operator==(const Entry &a, const Entry &b)
{
    return a.minute == b.minute && a.hour == b.hour && a.weekdays == b.weekdays;
}

TEST(PowerSchedule, ShiftTurnsTheWeekWithTheDay)
{
    static constexpr struct {
        Entry before;
        int minutes;
        Entry after;
    } kCases[] = {
        {{30, 20, kSaturday}, 480, {30, 4, kSunday}},                    // the week closes
        {{15, 1, kSunday}, -120, {15, 23, kSaturday}},                   // and backwards
        {{50, 23, kFriday | kSunday}, 30, {20, 0, kSaturday | kMonday}}, // zones of half an hour
        {{0, 0, 0x7f}, -1, {59, 23, 0x7f}},
    };
    for (const auto &row : kCases) {
        Entry entry = row.before;
        power_schedule_shift(&entry, row.minutes);
        EXPECT_TRUE(entry == row.after) << "case " << &row - kCases;
        power_schedule_shift(&entry, -row.minutes);
        EXPECT_TRUE(entry == row.before) << "case " << &row - kCases;
    }
}

constexpr char kPath[] = "/etc/power_sched.conf";
constexpr char kTempPath[] = "/tmp/power_sched.conf.tmp";

TEST(PowerSchedule, FileIsReadByItsSections)
{
    PrivateRoot root;
    std::string many = "[Power On schedule]\n17237534\nx1\n 2\n20908032\n[Power Off schedule]\n";
    for (int i = 0; i < 150; i++)
        many += "16777216\n";
    root.write(kPath, many);
    root.run([] {
        NORVPowerSchedule entries[200];
        EXPECT_EQ(power_schedule_read(PowerScheduleList::kOn, entries, kPowerSchedulesMax), 2);
        EXPECT_EQ(entries[0].enabled, 1); // 0x0107061e
        EXPECT_EQ(entries[0].weekdays, 7);
        EXPECT_EQ(entries[0].hour, 6);
        EXPECT_EQ(entries[0].minute, 30);
        EXPECT_EQ(power_schedule_read(PowerScheduleList::kOff, entries, 200), kPowerSchedulesMax);
        EXPECT_EQ(power_schedule_read(PowerScheduleList::kOff, entries, 1), 1);
        EXPECT_EQ(entries[0].weekdays, 0);
    });
}

TEST(PowerSchedule, WritingKeepsTheOtherListAndLogsWhatChanged)
{
    PrivateRoot root; // without /bin/cp, so what would be copied stays to be seen
    root.write(kPath, "[Power On schedule]\n16777217\n16777218\n[Power Off schedule]\n33\n");
    root.run([] {
        const NORVPowerSchedule entries[] = {{1, 0x7f, 23, 59}, {1, 0, 0, 2}};
        EXPECT_EQ(outcome(power_schedule_write, PowerScheduleList::kOn, entries, 2), (Outcome{-1, kErrChild}));
        EXPECT_EQ(outcome(power_schedule_write, PowerScheduleList::kOn, entries, 101), (Outcome{-1, kErrBadParameter}));
    });
    EXPECT_EQ(root.read(kTempPath), "[Power On schedule]\n16777218\n25106235\n[Power Off schedule]\n33\n");
    EXPECT_EQ(root.log(), "3 power_schedule_file.cpp:# Remove power schedule 0x01000001 ON\n\n"
                          "3 power_schedule_file.cpp:# Add power schedule 0x017f173b ON\n\n");
    root.write(kPath, "[Power On schedule]\n[Power Off schedule]\n33\n");
    root.run([] {
        EXPECT_EQ(power_schedule_write(PowerScheduleList::kOff, nullptr, 0), 0); // nothing left: no file
        EXPECT_EQ(access(kPath, F_OK), -1);
    });
}

} // namespace

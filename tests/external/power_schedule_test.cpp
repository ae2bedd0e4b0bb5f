#include "external/power_schedule.h"

#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/report.h"
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
    struct Case {
        Entry before;
        int minutes;
        Entry after;
    };
    static constexpr Case kCases[] = {
        {{30, 12, kMonday}, 480, {30, 20, kMonday}},
        {{30, 20, kSaturday}, 480, {30, 4, kSunday}},                    // the week closes
        {{15, 1, kSunday}, -120, {15, 23, kSaturday}},                   // and backwards
        {{50, 23, kFriday | kSunday}, 30, {20, 0, kSaturday | kMonday}}, // zones of half an hour
        {{0, 0, 0x7f}, -1, {59, 23, 0x7f}},
        {{59, 23, 0}, 1, {0, 0, 0}},
    };
    for (const Case &row : kCases) {
        Entry entry = row.before;
        power_schedule_shift(&entry, row.minutes);
        EXPECT_TRUE(entry == row.after) << "case " << &row - kCases;
    }
}

TEST(PowerSchedule, ShiftThereAndBackChangesNothing)
{
    for (const int zone : {-600, 345, 840}) {
        for (int minute = 0; minute < 24 * 60; minute++) {
            const Entry entry = {static_cast<uint8_t>(minute % 60), static_cast<uint8_t>(minute / 60),
                                 kSunday | kFriday};
            Entry shifted = entry;
            power_schedule_shift(&shifted, zone);
            power_schedule_shift(&shifted, -zone);
            ASSERT_TRUE(shifted == entry) << "minute " << minute << " zone " << zone;
        }
    }
}

constexpr char kPath[] = "/etc/power_sched.conf";
constexpr char kTempPath[] = "/tmp/power_sched.conf.tmp";

TEST(PowerSchedule, FileIsReadByItsSections)
{
    if (!PrivateRoot::allowed())
        GTEST_SKIP() << "the kernel refuses a private root";
    PrivateRoot root;
    root.write(kPath, "[Power On schedule]\n17237534\nx1\n 2\n20908032\n[Power Off schedule]\n16777216\n");
    root.run([] {
        NORVPowerSchedule entries[kPowerSchedulesMax];
        EXPECT_EQ(power_schedule_read(PowerScheduleList::kOn, entries, kPowerSchedulesMax), 2);
        EXPECT_EQ(entries[0].enabled, 1); // 0x0107061e
        EXPECT_EQ(entries[0].weekdays, 7);
        EXPECT_EQ(entries[0].hour, 6);
        EXPECT_EQ(entries[0].minute, 30);
        EXPECT_EQ(power_schedule_read(PowerScheduleList::kOff, entries, 0), 0);
        EXPECT_EQ(power_schedule_read(PowerScheduleList::kOff, entries, 1), 1);
        EXPECT_EQ(entries[0].weekdays, 0);
        return 0;
    });
    std::string many = "[Power Off schedule]\n";
    for (int i = 0; i < 150; i++)
        many += "1\n";
    root.write(kPath, many);
    root.run([] {
        NORVPowerSchedule entries[200];
        EXPECT_EQ(power_schedule_read(PowerScheduleList::kOff, entries, 200), kPowerSchedulesMax);
        EXPECT_EQ(power_schedule_read(PowerScheduleList::kOn, entries, 200), 0);
        return 0;
    });
}

TEST(PowerSchedule, WritingKeepsTheOtherListAndLogsWhatChanged)
{
    if (!PrivateRoot::allowed())
        GTEST_SKIP() << "the kernel refuses a private root";
    PrivateRoot root; // without /bin/cp, so what would be copied stays to be seen
    root.write(kPath, "[Power On schedule]\n16777217\n16777218\n[Power Off schedule]\n33\n");
    root.run([] {
        const NORVPowerSchedule entries[] = {{1, 0x7f, 23, 59}, {1, 0, 0, 2}};
        EXPECT_EQ(power_schedule_write(PowerScheduleList::kOn, entries, 2), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrChild);
        EXPECT_EQ(power_schedule_write(PowerScheduleList::kOn, entries, 101), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
        return 0;
    });
    EXPECT_EQ(root.read(kTempPath), "[Power On schedule]\n16777218\n25106235\n[Power Off schedule]\n33\n");
    EXPECT_EQ(root.log(), "3 power_schedule_file.cpp:# Remove power schedule 0x01000001 ON\n\n"
                          "3 power_schedule_file.cpp:# Add power schedule 0x017f173b ON\n\n");
    root.write(kPath, "[Power On schedule]\n[Power Off schedule]\n33\n");
    root.run([] {
        EXPECT_EQ(power_schedule_write(PowerScheduleList::kOff, nullptr, 0), 0); // nothing left: no file
        EXPECT_EQ(access(kPath, F_OK), -1);
        return 0;
    });
}

} // namespace

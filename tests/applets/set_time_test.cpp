// Setting the clocks by hand.
#include <cerrno>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/rows.h"

namespace
{

TEST(SetTime, RefusesWhatIsNoTimeAndTouchesNoClock)
{
    const std::pair<const char *, std::string> kCases[] = {
        {"1999/12/31 00:00:00", "year invalid:1999\n"},
        {"2021/13/32 24:00:00", "mon invalid:13\n"}, // the first one only
        {"2021/00/01 00:00:00", "mon invalid:0\n"},
        {"2021/04/31 25:00:00", "mday invalid:month:4, mday:31\n"},
        {"2021/01/00 00:00:00", "mday invalid:month:1, mday:0\n"},
        {"2100/02/29 00:00:00", "mday invalid:month:2, mday:29\n"},
        {"2021/12/31 24:60:60", "hour invalid:24\n"},
        {"2021/12/31 23:60:60", "minute invalid:60\n"},
        {"2021/12/31 23:59:60", "second invalid:60\n"},
    };
    Sandbox box;
    const auto set = [&](const std::string &time) { return box.run(words("mantool -rtc_set " + time)); };
    for (const auto &[time, out] : kCases) {
        const Result result = set(time);
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out.substr(0, out.size()), out); // the tool's own word comes behind it
    }
    for (const char *usage : {"2021/08/04 12:30:00 x", "2021/8/04 12:30:00", "x2021/08/04 12:30:00",
                              "2021/08/04 '12:30:00 '", "2021-08-04 12:30:00", "2021/08/04 -1:30:00"}) {
        const std::string out = set(usage).out;
        EXPECT_NE(out.find("mantool -mw <offset> <value>\n"), std::string::npos) << usage;
        EXPECT_NE(out.find("Excution Error"), std::string::npos);
    }
    EXPECT_EQ(box.record().count("settimeofday *") + box.record().count("board *"), 0);
}

TEST(SetTime, SetsTheSystemThenTheBoardAndReadsItBack)
{
    struct Case {
        std::string zone, date, seconds, chip;
    };
    // A zone with daylight saving from March to October.
    const std::string kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    const Case kCases[] = {
        {"UTC", "2000/02/29", "951827400", "0 30 12 2 29 1 100"},
        {kBerlin, "2021/01/04", "1609759800", "0 30 11 1 4 0 121"},
        {kBerlin, "2021/08/04", "1628073000", "0 30 10 3 4 7 121"},
    };
    for (const Case &row : kCases) {
        Sandbox box;
        const Result result = box.run({"mantool", "-rtc_set", row.date, "12:30:00"}, {.env = {"TZ=" + row.zone}});
        EXPECT_EQ(result.exit_status, 0);
        // The board's clock runs on.
        EXPECT_EQ(result.out.substr(0, 15), row.date + " 12:3") << row.zone;
        EXPECT_EQ(box.run({"mantool", "-rtc_get"}, {.env = {"TZ=" + row.zone}}).out.substr(0, 10), row.date);
        EXPECT_TRUE(box.record().in_order({"settimeofday " + row.seconds + ".000000",
                                           "board 0xc0074b06 rtc_write " + row.chip + "*", "board 0xc0074b05 *"}))
            << box.record().text();
    }
}

TEST(SetTime, FailuresAreTold)
{
    const auto board = [](const char *scenario) -> Change {
        return [=](Sandbox &box) { box.board_scenario(scenario); };
    };
    const std::pair<Change, std::string> kCases[] = {
        {call({.call = "settimeofday", .error = EPERM}), "settimeofday() fail\n"},
        {call({.call = "open", .args = "/dev/norvbios *", .error = ENOENT}), "open /dev/norvbios error!\n"},
        {board("fail rtc_write EIO"), "ioctl error with cmd NORVIO_RTC_TIME_WRITE !\n"},
        {board("fail rtc_read EIO"), "ioctl error with cmd NORVIO_RTC_TIME_READ !\n"},
    };
    for (const auto &[change, out] : kCases) {
        Sandbox box;
        change(box);
        EXPECT_EQ(box.run({"mantool", "-rtc_set", "2021/08/04", "12:30:00"}).out.substr(0, out.size()), out);
    }
}

} // namespace

// Setting the clocks by hand.
#include <cerrno>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/sandbox.h"

namespace
{

TEST(SetTime, RefusesWhatIsNoTimeAndTouchesNoClock)
{
    struct Case {
        std::vector<std::string> args;
        std::string out; // before the tool's own word
    };
    const Case kCases[] = {
        {{"1999/12/31", "00:00:00"}, "year invalid:1999\n"},
        {{"2021/13/32", "24:00:00"}, "mon invalid:13\n"}, // the first one only
        {{"2021/00/01", "00:00:00"}, "mon invalid:0\n"},
        {{"2021/04/31", "25:00:00"}, "mday invalid:month:4, mday:31\n"},
        {{"2021/01/00", "00:00:00"}, "mday invalid:month:1, mday:0\n"},
        {{"2021/02/29", "00:00:00"}, "mday invalid:month:2, mday:29\n"},
        {{"2100/02/29", "00:00:00"}, "mday invalid:month:2, mday:29\n"},
        {{"2021/12/31", "24:60:60"}, "hour invalid:24\n"},
        {{"2021/12/31", "23:60:60"}, "minute invalid:60\n"},
        {{"2021/12/31", "23:59:60"}, "second invalid:60\n"},
    };
    Sandbox box;
    for (const Case &row : kCases) {
        const Result result = box.run({"mantool", "-rtc_set", row.args[0], row.args[1]});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out.substr(0, row.out.size()), row.out);
    }
    const std::vector<std::string> kUsage[] = {{"2021/08/04"},
                                               {"2021/08/04", "12:30:00", "x"},
                                               {"2021/8/04", "12:30:00"},
                                               {"021/08/04", "12:30:00"},
                                               {"x2021/08/04", "12:30:00"},
                                               {"2021/08/04", "12:30:0x"},
                                               {"2021/08/04", "12:30:00 "},
                                               {"2021-08-04", "12:30:00"},
                                               {"2021/08/04", "-1:30:00"}};
    for (std::vector<std::string> args : kUsage) {
        args.insert(args.begin(), {"mantool", "-rtc_set"});
        const std::string out = box.run(args).out;
        EXPECT_NE(out.find("mantool -mw <offset> <value>\n"), std::string::npos) << out;
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
        {"UTC", "2021/08/04", "1628080200", "0 30 12 3 4 7 121"},
        {kBerlin, "2021/01/04", "1609759800", "0 30 11 1 4 0 121"},
        {kBerlin, "2021/08/04", "1628073000", "0 30 10 3 4 7 121"},
    };
    for (const Case &row : kCases) {
        Sandbox box;
        const Result result = box.run({"mantool", "-rtc_set", row.date, "12:30:00"}, {.env = {"TZ=" + row.zone}});
        EXPECT_EQ(result.exit_status, 0);
        // The board's clock runs on.
        EXPECT_EQ(result.out.substr(0, 15), row.date + " 12:3") << row.zone;
        EXPECT_TRUE(box.record().in_order({"settimeofday " + row.seconds + ".000000",
                                           "board 0xc0074b06 rtc_write " + row.chip + "*", "board 0xc0074b05 *"}))
            << box.record().text();
    }
}

TEST(SetTime, FailuresAreTold)
{
    struct Case {
        CallRow call;
        std::string scenario, out;
    };
    const Case kCases[] = {
        {{.call = "settimeofday", .error = EPERM}, "", "settimeofday() fail\n"},
        {{.call = "open", .args = "/dev/norvbios *", .error = ENOENT}, "", "open /dev/norvbios error!\n"},
        {{}, "fail rtc_write EIO", "ioctl error with cmd NORVIO_RTC_TIME_WRITE !\n"},
        {{}, "fail rtc_read EIO", "ioctl error with cmd NORVIO_RTC_TIME_READ !\n"},
    };
    for (const Case &row : kCases) {
        Sandbox box;
        if (!row.call.call.empty())
            box.call(row.call);
        if (!row.scenario.empty())
            box.board_scenario(row.scenario);
        const Result result = box.run({"mantool", "-rtc_set", "2021/08/04", "12:30:00"});
        EXPECT_EQ(result.out.substr(0, row.out.size()), row.out);
    }
}

} // namespace

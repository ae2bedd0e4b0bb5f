#include "external/rtc_time.h"

#include <cstdint>
#include <cstdio>

#include "external/board_device.h"
#include "lib/report.h"

namespace
{

// What the driver's two requests carry.
struct RtcRecord {
    uint8_t seconds, minutes, hours, week_day, month_day, month, year; // month from 0, year from 1900
};
static_assert(sizeof(RtcRecord) == 7);

int rtc_request(BoardRequest request, RtcRecord *record, const char *failure)
{
    if (board_request(request, record) >= 0)
        return 0;
    if (NLIBCErrGet() == kErrOpen)
        printf("open %s error!\n", kBoardPath);
    else
        puts(failure);
    return -1;
}

} // namespace

int RtcTimeWrite(time_t time)
{
    struct tm utc;
    if (gmtime_r(&time, &utc) == nullptr) {
        puts("gmtime_r fail!");
        return fail(kErrSystemCall);
    }
    const auto byte = [](int value) { return static_cast<uint8_t>(value); };
    RtcRecord record = {byte(utc.tm_sec),  byte(utc.tm_min), byte(utc.tm_hour), byte(utc.tm_wday),
                        byte(utc.tm_mday), byte(utc.tm_mon), byte(utc.tm_year)};
    return rtc_request(NORVIO_RTC_TIME_WRITE, &record, "ioctl error with cmd NORVIO_RTC_TIME_WRITE !");
}

int RtcTimeRead(struct tm *tm)
{
    RtcRecord record = {};
    if (rtc_request(NORVIO_RTC_TIME_READ, &record, "ioctl error with cmd NORVIO_RTC_TIME_READ !") != 0)
        return -1;
    struct tm utc = {};
    utc.tm_sec = record.seconds;
    utc.tm_min = record.minutes;
    utc.tm_hour = record.hours;
    utc.tm_mday = record.month_day;
    utc.tm_mon = record.month;
    utc.tm_year = record.year;
    const time_t time = mktime(&utc) - timezone; // mktime takes them for standard time of this zone, and sets timezone
    if (localtime_r(&time, tm) == nullptr)
        return fail(kErrSystemCall);
    tm->tm_year += 1900;
    tm->tm_mon += 1;
    return 0;
}

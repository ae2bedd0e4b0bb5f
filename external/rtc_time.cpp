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

void failure_tell(const char *failure)
{
    if (NLIBCErrGet() == kErrOpen)
        printf("open %s error!\n", kBoardPath);
    else
        puts(failure);
}

// Returns false for a time that no calendar has.
bool record_fill(time_t time, RtcRecord *record)
{
    struct tm utc;
    if (gmtime_r(&time, &utc) == nullptr)
        return false;
    const auto byte = [](int value) { return static_cast<uint8_t>(value); };
    *record = {byte(utc.tm_sec),  byte(utc.tm_min), byte(utc.tm_hour), byte(utc.tm_wday),
               byte(utc.tm_mday), byte(utc.tm_mon), byte(utc.tm_year)};
    return true;
}

} // namespace

int rtc_time_set(time_t time)
{
    RtcRecord record;
    if (!record_fill(time, &record))
        return fail(kErrSystemCall);
    return board_request(NORVIO_RTC_TIME_WRITE, &record) >= 0 ? 0 : -1;
}

int RtcTimeWrite(time_t time)
{
    RtcRecord record;
    if (!record_fill(time, &record)) {
        puts("gmtime_r fail!");
        return fail(kErrSystemCall);
    }
    if (board_request(NORVIO_RTC_TIME_WRITE, &record) >= 0)
        return 0;
    failure_tell("ioctl error with cmd NORVIO_RTC_TIME_WRITE !");
    return -1;
}

int RtcTimeRead(struct tm *tm)
{
    RtcRecord record = {};
    if (board_request(NORVIO_RTC_TIME_READ, &record) < 0) {
        failure_tell("ioctl error with cmd NORVIO_RTC_TIME_READ !");
        return -1;
    }
    struct tm utc = {};
    utc.tm_sec = record.seconds;
    utc.tm_min = record.minutes;
    utc.tm_hour = record.hours;
    utc.tm_mday = record.month_day;
    utc.tm_mon = record.month;
    utc.tm_year = record.year;
    time_t time = mktime(&utc); // takes them for standard time of this zone, and sets timezone
    time -= timezone;
    if (localtime_r(&time, tm) == nullptr)
        return fail(kErrSystemCall);
    tm->tm_year += 1900;
    tm->tm_mon += 1;
    return 0;
}

#include "applets/mantool.h"

#include <cstdio>
#include <ctime>
#include <regex.h>
#include <sys/time.h>

#include "external/rtc_time.h"

namespace
{

struct DateTime {
    int year, month, day, hour, minute, second;
};

bool is_match(const char *text, const char *pattern)
{
    regex_t compiled;
    if (regcomp(&compiled, pattern, REG_EXTENDED | REG_NOSUB) != 0)
        return false;
    const bool matches = regexec(&compiled, text, 0, nullptr, 0) == 0;
    regfree(&compiled);
    return matches;
}

bool parse(const char *date, const char *time, DateTime *parsed)
{
    return is_match(date, "^[0-9]{4,4}(/[0-9]{2,2}){2,2}$") && is_match(time, "^[0-9]{2,2}(:[0-9]{2,2}){2,2}$") &&
           sscanf(date, "%d/%d/%d", &parsed->year, &parsed->month, &parsed->day) == 3 &&
           sscanf(time, "%d:%d:%d", &parsed->hour, &parsed->minute, &parsed->second) == 3;
}

int month_days(int year, int month)
{
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool is_leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return kDays[month - 1] + (month == 2 && is_leap ? 1 : 0);
}

// Says which field is out of its range, the first one only.
bool is_valid(const DateTime &at)
{
    if (at.year < 2000 || at.year > 9999)
        printf("year invalid:%d\n", at.year);
    else if (at.month < 1 || at.month > 12)
        printf("mon invalid:%d\n", at.month);
    else if (at.day < 1 || at.day > month_days(at.year, at.month))
        printf("mday invalid:month:%d, mday:%d\n", at.month, at.day);
    else if (at.hour < 0 || at.hour > 23)
        printf("hour invalid:%d\n", at.hour);
    else if (at.minute < 0 || at.minute > 59)
        printf("minute invalid:%d\n", at.minute);
    else if (at.second < 0 || at.second > 59)
        printf("second invalid:%d\n", at.second);
    else
        return true;
    return false;
}

int clocks_set(const DateTime &at)
{
    struct tm local = {};
    local.tm_year = at.year - 1900;
    local.tm_mon = at.month - 1;
    local.tm_mday = at.day;
    local.tm_hour = at.hour;
    local.tm_min = at.minute;
    local.tm_sec = at.second;
    local.tm_isdst = -1;
    const timeval now = {mktime(&local), 0};
    if (now.tv_sec == -1) {
        puts("mktime() fail");
        return -1;
    }
    if (const int result = settimeofday(&now, nullptr); result != 0) {
        puts("settimeofday() fail");
        return result;
    }
    return RtcTimeWrite(now.tv_sec);
}

} // namespace

int SetTimeCommand(int argc, char *argv[])
{
    DateTime at;
    if (argc != 4 || !parse(argv[2], argv[3], &at)) {
        mantool_usage_print();
        return -1;
    }
    struct tm chip;
    if (!is_valid(at) || clocks_set(at) != 0 || RtcTimeRead(&chip) != 0)
        return -1;
    printf("%d/%02d/%02d %02d:%02d:%02d\n", chip.tm_year, chip.tm_mon, chip.tm_mday, chip.tm_hour, chip.tm_min,
           chip.tm_sec);
    return 0;
}

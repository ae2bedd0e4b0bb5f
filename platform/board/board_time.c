#include "board_internal.h"

#define DAY_SECONDS 86400
#define ERA_DAYS 146097 /* 400 years */

/* Days since 1970-01-01 of the proleptic Gregorian calendar. Years begin in March here, so that leap days end them. */
static int64_t days_join(int64_t year, int month, int day) /* month from 1 */
{
    const int64_t y = year - (month <= 2);
    const int64_t era = y / 400;
    const int64_t year_of_era = y - era * 400;
    const int day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;

    return era * ERA_DAYS + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year - 719468;
}

void board_time_split(int64_t seconds, struct board_time *time)
{
    /* Below 1900 the record has no year: the clock stands at its first second. */
    const int64_t first = -25567LL * DAY_SECONDS;
    const int64_t from_first = seconds > first ? seconds - first : 0;
    const int64_t days = (from_first + first + 719468LL * DAY_SECONDS) / DAY_SECONDS; /* since 0000-03-01 */
    const int64_t era = days / ERA_DAYS;
    const int64_t day_of_era = days - era * ERA_DAYS;
    const int64_t year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const int64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t shifted_month = (5 * day_of_year + 2) / 153; /* from March */
    const int64_t month = shifted_month < 10 ? shifted_month + 2 : shifted_month - 10;
    const int64_t of_day = from_first % DAY_SECONDS;

    time->second = (uint8_t)(of_day % 60);
    time->minute = (uint8_t)(of_day / 60 % 60);
    time->hour = (uint8_t)(of_day / 3600);
    time->week_day = (uint8_t)((days + 3) % 7); /* 0000-03-01 was a Wednesday */
    time->month_day = (uint8_t)(day_of_year - (153 * shifted_month + 2) / 5 + 1);
    time->month = (uint8_t)month;
    time->year = (uint8_t)(year_of_era + era * 400 + (month <= 1) - 1900);
}

int board_time_join(const struct board_time *time, int64_t *seconds)
{
    struct board_time again;
    int64_t joined;

    if (time->month > 11 || time->hour > 23 || time->minute > 59 || time->second > 59)
        return -EINVAL;
    joined = days_join(1900 + time->year, time->month + 1, time->month_day) * DAY_SECONDS + time->hour * 3600 +
             time->minute * 60 + time->second;
    board_time_split(joined, &again);
    if (again.month_day != time->month_day || again.month != time->month) /* 30 February */
        return -EINVAL;
    *seconds = joined;
    return 0;
}

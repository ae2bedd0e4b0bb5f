#include "external/rtc_time.h"
#include "install/cgi.h"

int cgi_clock_set(uint64_t seconds)
{
    if (seconds == 0 || seconds == UINT64_MAX)
        return 0;
    return rtc_time_set(static_cast<time_t>(seconds));
}

#include <cstdlib>
#include <ctime>
#include <sys/time.h>

#include "findhost/findhost.h"
#include "findhost/findhost_inetd.h"
#include "lib/proc.h"
#include "lib/report.h"

static constexpr int kYear2000 = 100; // as struct tm counts

static void set_time()
{
    tm date = {};
    date.tm_year = kYear2000;
    date.tm_mday = 1;
    date.tm_isdst = -1;
    const timeval now = {.tv_sec = mktime(&date), .tv_usec = 0};
    if (now.tv_sec == -1)
        NORV_LOG_CALL(LOG_ERR, "(%s) failed to mktime [errno = %m]", "SetTime");
    else if (settimeofday(&now, nullptr) != 0)
        NORV_LOG_CALL(LOG_ERR, "(%s) failed to settimeofday [errno = %m]", "SetTime");
}

int FHOSTinetdStart()
{
    set_time();
    if (NLIBCProcAliveByPidFile("/var/run/inetd.pid") || system("/usr/sbin/inetd") == 0)
        return 0;
    FHOST_DEBUG("Start telnet error.\n");
    return fail(kErrChild);
}

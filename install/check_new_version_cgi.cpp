#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/time.h>

#include "autocleanup/unique.h"
#include "install/cgi.h"
#include "install/download.h"
#include "lib/report.h"

// The seconds that a query tells, the last time it does so; 0 without them.
static unsigned long query_time(const char *query)
{
    const UniqueText text(strdup(query));
    unsigned long seconds = 0;
    char *rest = text.get(), *value;
    while (const char *name = text ? cgi_query_next(&rest, &value) : nullptr)
        if (strcmp(name, "utctime") == 0)
            seconds = strtoul(value, nullptr, 10);
    return seconds;
}

static void clock_set()
{
    const char *query = getenv("QUERY_STRING");
    if (query == nullptr) {
        NORV_LOG(LOG_ERR, "getenv(QUERY_STRING) fail. [%m]");
        return;
    }
    const unsigned long seconds = query_time(query);
    if (seconds == 0)
        return;
    const timeval now = {.tv_sec = static_cast<time_t>(seconds), .tv_usec = 0};
    if (settimeofday(&now, nullptr) != 0)
        NORV_LOG(LOG_ERR, "settimeofday(%lu) fail", seconds);
}

int CheckNewVersionCgi(int mode)
{
    clock_set();
    NewVersion found;
    if (CheckNewVersion(mode, &found) != 0)
        return -1;
    printf("Download link: %s\n", found.link);
    printf("CheckSum:      %s\n", found.checksum);
    printf("Version:       %s\n", found.version);
    return 0;
}

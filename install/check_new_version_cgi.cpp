#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <sys/time.h>

#include "install/download.h"
#include "lib/report.h"

static constexpr std::string_view kClockKey = "utctime=";

// The seconds that a query tells; 0 without them. Of several the last counts.
static unsigned long query_time(std::string_view query)
{
    unsigned long seconds = 0;
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        if (pair.starts_with(kClockKey)) // what follows ends in '&' or NUL, both no digits
            seconds = strtoul(pair.data() + kClockKey.size(), nullptr, 10);
        query.remove_prefix(pair.size() < query.size() ? pair.size() + 1 : pair.size());
    }
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

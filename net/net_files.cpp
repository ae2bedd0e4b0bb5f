#include "net/net_files.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "lib/string.h"

static constexpr int kLeaseWaitSeconds = 3;

NetCardMode net_address_file(const char *name, char (&path)[kNetPathRoom])
{
    if (NORVJNetDeviceIsDHCP(name) != 1) {
        NLIBCStrSnprintf(path, sizeof(path), "%s%s", kNetConfigPrefix, name);
        return kNetStatic;
    }
    NLIBCStrSnprintf(path, sizeof(path), "%s%s.info", kNetLeasePrefix, name);
    for (int second = 0; second < kLeaseWaitSeconds && access(path, F_OK) != 0; second++)
        sleep(1);
    return kNetDhcp;
}

int net_line_run(const char *format, ...)
{
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(line))
        return fail(kErrTextDoesNotFit);
    return system(line);
}

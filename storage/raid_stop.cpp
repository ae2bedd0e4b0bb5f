#include "lib/report.h"
#include "storage/raid_parts.h"
#include "storage/space.h"

int raid_stop(const char *path)
{
    if (path == nullptr)
        return fail(kErrBadParameter);
    if (space_execl(kMdadm, "-S", path, nullptr) == 0)
        return 0;
    NORV_LOG(LOG_DEBUG, "Failed to mdadm stop '%s'", path);
    return fail(kErrChild);
}

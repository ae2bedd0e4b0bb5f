#include <cstring>

#include "lib/io.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"
#include "storage/lvm.h"

static constexpr int kLineRoom = 1024;

// The text up to the next ':', which is cut off with it. NULL, the rest as it was, without one.
static char *field_next(char **rest)
{
    char *field = *rest, *colon = strchr(field, ':');
    if (colon == nullptr)
        return nullptr;
    *colon = '\0';
    *rest = colon + 1;
    return field;
}

int lvm_lvpath_parse(FILE *listing, const char *device, char *out, size_t size)
{
    char line[kLineRoom], found[kLineRoom] = "";
    while (NLIBCFgets(line, sizeof(line), listing) != nullptr)
        if (strstr(line, device) != nullptr)
            text_cut(found, line); // the last one counts
    found[strcspn(found, "\n")] = '\0';
    if (found[0] == '\0')
        return fail(kErrBadFormat);
    char *rest = found;
    if (field_next(&rest) == nullptr) {
        NORV_LOG(LOG_DEBUG, "Invalid pvs result [%s]. separator ':' not found", rest);
        return fail(kErrBadFormat);
    }
    const char *group = field_next(&rest);
    if (group == nullptr) {
        NORV_LOG(LOG_DEBUG, "pvg=%s", rest);
        return fail(kErrBadFormat);
    }
    const char *volume = field_next(&rest);
    if (volume == nullptr) {
        NORV_LOG(LOG_DEBUG, "plv=%s", rest);
        return fail(kErrBadFormat);
    }
    return NLIBCStrSnprintf(out, size, "/dev/%s/%s", group, volume) < 0 ? -1 : 0;
}

int lvm_get_lvpath(const char *device, char *out, size_t size)
{
    if (device == nullptr || *device == '\0' || out == nullptr)
        return fail(kErrBadParameter);
    FILE *listing = NLIBCPopen("/sbin/pvs", "r", "-o", "pv_name,vg_name,lv_name,origin", "--noheading", "--separator",
                               ":", nullptr);
    if (listing == nullptr)
        return -1;
    const int found = lvm_lvpath_parse(listing, device, out, size);
    NLIBCPclose(listing);
    return found;
}

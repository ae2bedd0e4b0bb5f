#include "external/expansion_unit.h"

#include <cstring>
#include <glob.h>

#include "autocleanup/glob_matches.h"
#include "lib/file.h"
#include "lib/report.h"

static constexpr char kUnitPattern[] = "/tmp/eunitinfo_*";

int expansion_unit_disks_get(char *names, size_t size)
{
    if (names == nullptr || size == 0)
        return fail(kErrBadParameter);
    names[0] = '\0';
    size_t length = 0;
    GlobMatches units;
    if (glob(kUnitPattern, 0, nullptr, &units.found) != 0)
        return 0;
    for (size_t i = 0; i < units.found.gl_pathc; i++) {
        char disks[256];
        const int bytes = NLIBCFileGetKeyValue(units.found.gl_pathv[i], "EUnitDisks", disks, sizeof(disks), 0);
        if (bytes <= 1)
            continue;
        if (length + 1 + static_cast<size_t>(bytes) > size)
            return fail(kErrBufferTooSmall);
        if (length > 0)
            names[length++] = ',';
        memcpy(names + length, disks, static_cast<size_t>(bytes));
        length += static_cast<size_t>(bytes) - 1;
    }
    return 0;
}

bool expansion_unit_list_holds(const char *names, const char *disk_name)
{
    const size_t length = strlen(disk_name);
    for (const char *at = names; *at != '\0';) {
        const size_t item = strcspn(at, ",");
        if (item == length && strncmp(at, disk_name, length) == 0)
            return true;
        at += item + (at[item] == ',' ? 1 : 0);
    }
    return false;
}

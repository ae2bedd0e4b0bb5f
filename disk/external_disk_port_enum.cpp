#include "disk/disk.h"

#include <glob.h>

#include "autocleanup/glob_matches.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "lib/string.h"

namespace
{

// The names of a class, below /sys/block/.
struct ClassPattern {
    int type;
    const char *plain, *sas; // on models without and with SAS; NULL: none
    bool (*is_used)();       // NULL: always
};
bool m2_is_cache()
{
    return !conf_blockm2sata();
}
constexpr ClassPattern kPatterns[] = {
    {kDiskPortInternal, "sd*", "sas*", nullptr},   {kDiskPortInternal, "nvme*n*", "nvme*n*", conf_supportnvme},
    {kDiskPortEsata, "sd*", nullptr, nullptr},     {kDiskPortExpansion, "sd*", "sas*", nullptr},
    {kDiskPortUsb, "sd*", "usb*", nullptr},        {kDiskPortBoot, "norvboot", "norvboot", nullptr},
    {kDiskPortIscsi, "isd*", "iscsi*", nullptr},   {kDiskPortCache, "sd*", "sas*", nullptr},
    {kDiskPortCache, "nvc*", "nvc*", m2_is_cache}, {kDiskPortCache, "nvme*n*", "nvme*n*", conf_supportnvme},
    {kDiskPortSystem, "sysd*", "sysd*", nullptr},
};

// Pushes the disks of one pattern that are of the class. Returns 0; -1.
int pattern_walk(const char *pattern, int type, PNLIBSZLIST *list)
{
    char path[64];
    if (NLIBCStrSnprintf(path, sizeof(path), "/sys/block/%s", pattern) < 0)
        return -1;
    GlobMatches matches;
    switch (glob(path, 0, nullptr, &matches.found)) {
    case 0:
    case GLOB_NOMATCH:
        break;
    case GLOB_NOSPACE:
        NORV_LOG(LOG_ERR, "out of memory to alloc glob function when looking for:%s", path);
        return fail(kErrOutOfMemory);
    default:
        NORV_LOG(LOG_ERR, "read error :%s", path);
        return fail(kErrRead);
    }
    for (size_t i = 0; i < matches.found.gl_pathc; i++) {
        const char *name = base_name(matches.found.gl_pathv[i]);
        if (external_disk_port_check(name) == type && NLIBCSzListPush(list, name) < 0)
            return -1;
    }
    return 0;
}

} // namespace

int external_disk_port_enum(int type, PNLIBSZLIST *list)
{
    if (list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    bool is_known = false;
    for (const ClassPattern &row : kPatterns) {
        if (row.type != type)
            continue;
        is_known = true;
        const char *pattern = conf_supportsas() ? row.sas : row.plain;
        if (pattern == nullptr || (row.is_used != nullptr && !row.is_used()))
            continue;
        if (pattern_walk(pattern, type, list) != 0) {
            NORV_LOG(LOG_ERR, "NORVDiskPathGlobAndPortCheck fail!");
            return -1;
        }
    }
    if (!is_known) {
        NORV_LOG(LOG_ERR, "disk port type doesn't exist");
        return fail(kErrBadParameter);
    }
    NLIBCSzListSort(*list, kListSorted);
    return 0;
}

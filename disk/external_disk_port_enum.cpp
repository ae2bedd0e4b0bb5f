#include "disk/disk.h"

#include <cerrno>
#include <cstring>
#include <glob.h>

#include "autocleanup/glob_matches.h"
#include "external/nvme_slot.h"
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
constexpr char kNvmePattern[] = "nvme*n*", kM2Pattern[] = "nvc*";
constexpr ClassPattern kPatterns[] = {
    {kDiskPortInternal, "sd*", "sas*", nullptr},
    {kDiskPortInternal, kNvmePattern, kNvmePattern, conf_supportnvme},
    {kDiskPortEsata, "sd*", nullptr, nullptr},
    {kDiskPortExpansion, "sd*", "sas*", nullptr},
    {kDiskPortUsb, "sd*", "usb*", nullptr},
    {kDiskPortBoot, "norvboot", "norvboot", nullptr},
    {kDiskPortIscsi, "isd*", "iscsi*", nullptr},
    {kDiskPortCache, "sd*", "sas*", nullptr},
    {kDiskPortCache, kM2Pattern, kM2Pattern, m2_is_cache},
    {kDiskPortCache, kNvmePattern, kNvmePattern, conf_supportnvme},
    {kDiskPortSystem, "sysd*", "sysd*", nullptr},
};

// What a walk keeps of the names that match its pattern.
struct Wanted {
    int type;                          // kDiskPortUnknown: every class but kDiskPortInvalid
    bool (*is_kept)(const char *name); // NULL: all of them
};

bool is_wanted(const char *name, const Wanted &wanted)
{
    const int type = external_disk_port_check(name);
    const bool has_class = wanted.type == kDiskPortUnknown ? type != kDiskPortInvalid : type == wanted.type;
    return has_class && (wanted.is_kept == nullptr || wanted.is_kept(name));
}

// A kernel without the folder has no disks; everything else that stops glob is an error.
int on_read_error(const char * /*path*/, int error)
{
    return error == ENOENT ? 0 : 1;
}

int pattern_walk(const char *pattern, const Wanted &wanted, PNLIBSZLIST *list)
{
    char path[64];
    if (NLIBCStrSnprintf(path, sizeof(path), "/sys/block/%s", pattern) < 0)
        return -1;
    GlobMatches matches;
    switch (glob(path, 0, on_read_error, &matches.found)) {
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
        if (is_wanted(name, wanted) && NLIBCSzListPush(list, name) < 0)
            return -1;
    }
    return 0;
}

// Pushes what one pattern finds. Returns 0; -1, logged.
int pattern_enum(const char *pattern, const Wanted &wanted, PNLIBSZLIST *list)
{
    if (pattern_walk(pattern, wanted, list) == 0)
        return 0;
    NORV_LOG(LOG_ERR, "NORVDiskPathGlobAndPortCheck fail!");
    return -1;
}

int class_enum(const Wanted &wanted, PNLIBSZLIST *list)
{
    if (list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    bool is_known = false;
    for (const ClassPattern &row : kPatterns) {
        if (row.type != wanted.type)
            continue;
        is_known = true;
        const char *pattern = conf_supportsas() ? row.sas : row.plain;
        const bool is_used = pattern != nullptr && (row.is_used == nullptr || row.is_used());
        if (is_used && pattern_enum(pattern, wanted, list) != 0)
            return -1;
    }
    if (!is_known) {
        NORV_LOG(LOG_ERR, "disk port type doesn't exist");
        return fail(kErrBadParameter);
    }
    NLIBCSzListSort(*list, kListSorted);
    return 0;
}

bool is_m2(const char *name)
{
    return !disk_is_nvme(name) || nvme_slot_kind_get(name) != kNvmeSlotU2;
}
bool is_u2(const char *name)
{
    return !disk_is_nvme(name) || nvme_slot_kind_get(name) == kNvmeSlotU2;
}
bool is_bay(const char *name)
{
    return !disk_is_nvme(name) && strstr(name, "nvc") == nullptr;
}

} // namespace

int external_disk_port_enum(int type, PNLIBSZLIST *list)
{
    return class_enum({type, nullptr}, list);
}

int external_disk_internal_bay_enum(PNLIBSZLIST *list)
{
    return class_enum({kDiskPortInternal, is_bay}, list);
}

int external_disk_m2_enum(PNLIBSZLIST *list)
{
    if (list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    constexpr Wanted kWanted = {kDiskPortUnknown, is_m2};
    if ((m2_is_cache() && pattern_enum(kM2Pattern, kWanted, list) != 0) ||
        (conf_supportnvme() && pattern_enum(kNvmePattern, kWanted, list) != 0))
        return -1;
    NLIBCSzListSort(*list, kListSorted);
    return 0;
}

int external_disk_u2_enum(PNLIBSZLIST *list)
{
    if (list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    if (pattern_enum(kNvmePattern, {kDiskPortUnknown, is_u2}, list) != 0)
        return -1;
    NLIBCSzListSort(*list, kListSorted);
    return 0;
}

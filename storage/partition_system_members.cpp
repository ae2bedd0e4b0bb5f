#include <cstring>
#include <glob.h>

#include "autocleanup/glob_matches.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "lib/string.h"
#include "storage/partition_layout.h"

static constexpr int kSystemArray = 0;

int partition_system_members(int glob_flags, PNLIBSZLIST *disks)
{
    char pattern[64];
    if (NLIBCStrSnprintf(pattern, sizeof(pattern), "/sys/block/md%d/md/dev-*", kSystemArray) < 0)
        return -1;
    GlobMatches members;
    const int found = glob(pattern, glob_flags, nullptr, &members.found);
    if (found != 0 && found != GLOB_NOMATCH)
        return fail(found == GLOB_NOSPACE ? kErrOutOfMemory : kErrRead);
    // What a partition adds to the name of its disk: one digit, on SAS a 'p' too.
    const size_t suffix = conf_supportsas() ? 2 : 1;
    for (size_t i = 0; i < members.found.gl_pathc; i++) {
        char *name = strrchr(members.found.gl_pathv[i], '-') + 1;
        const size_t length = strlen(name);
        name[length > suffix ? length - suffix : 0] = '\0';
        if (NLIBCSzListPush(disks, name) < 0)
            return -1;
    }
    return (*disks)->nItem;
}

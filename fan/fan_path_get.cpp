#include "fan/fan_path.h"

#include <cstdio>
#include <cstring>
#include <glob.h>

#include "autocleanup/glob_matches.h"
#include "autocleanup/unique.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr char kControllerName[] = "adt7490";

namespace
{

// Returns 1 when the folder is the controller's, 0 when not, -1.
int folder_check(const char *folder)
{
    char path[256], name[64];
    if (NLIBCStrSnprintf(path, sizeof(path), "%sname", folder) < 0)
        return -1;
    const UniqueFile file(fopen(path, "re"));
    if (!file || NLIBCFgets(name, sizeof(name), file.get()) == nullptr) {
        NORV_LOG(LOG_ERR, "Fail to read %s", path);
        return fail(kErrRead);
    }
    return strncmp(name, kControllerName, strlen(kControllerName)) == 0 ? 1 : 0;
}

} // namespace

int fan_path_get(int unit, char *path, size_t size)
{
    if (unit < 0 || path == nullptr || size == 0)
        return fail(kErrBadParameter);
    char pattern[64] = "/tmp/ADTFanPath/";
    if (unit > 0)
        snprintf(pattern, sizeof(pattern), "/tmp/ADTFanPath_Eunit_%d/", unit);
    GlobMatches matches;
    const int result = glob(pattern, 0, nullptr, &matches.found);
    if (result == GLOB_NOMATCH) {
        NORV_LOG(LOG_ERR, "No ADT7490 device.");
        return fail(kErrNoDevice);
    }
    if (result != 0) {
        NORV_LOG(LOG_ERR, "glob adt control path fail failed");
        return fail(kErrDeviceSearch);
    }
    for (size_t i = 0; i < matches.found.gl_pathc; i++) {
        const int is_controller = folder_check(matches.found.gl_pathv[i]);
        if (is_controller < 0)
            return -1;
        if (is_controller == 1)
            return NLIBCStrSnprintf(path, size, "%s", matches.found.gl_pathv[i]) < 0 ? fail(kErrBufferTooSmall) : 0;
    }
    return fail(kErrNoneFoundBe);
}

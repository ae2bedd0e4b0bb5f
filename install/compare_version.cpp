#include <cstring>

#include "install/recoverable.h"
#include "install/version_text.h"
#include "lib/report.h"

static VersionText version_text_or_log(const char *path, const char *key)
{
    const VersionText text = version_text_read(path, key);
    if (!text.is_there)
        NORV_LOG(LOG_ERR, "fail to read [%s] from [%s]", key, path);
    return text;
}

int CompareVersion(const char *a, const char *b)
{
    for (const char *key : {"majorversion", "minorversion", "buildnumber"}) {
        const VersionText first = version_text_or_log(a, key), second = version_text_or_log(b, key);
        const int difference = strcmp(first.value, second.value);
        if (difference != 0)
            return difference;
    }
    return 0;
}

#include "lib/file.h"

#include <strings.h>

#include "lib/report.h"

int NLIBCFileCheckKeyValue(const char *file, const char *key, const char *expected, int fallback)
{
    if (file == nullptr || key == nullptr || expected == nullptr) {
        fail(kErrBadParameter);
        return 0;
    }
    char value[512];
    const int length = NLIBCFileGetKeyValue(file, key, value, sizeof(value), 0);
    if (length < 0) {
        NORV_LOG(LOG_DEBUG, "NLIBCFileGetKeyValue(%s) failed [0x%04X %s:%d]", file, NORV_ERR_ARGS);
        return 0;
    }
    if (length == 0)
        return fallback;
    return strcasecmp(value, expected) == 0 ? 1 : 0;
}

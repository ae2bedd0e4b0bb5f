#include "lib/file.h"

#include "autocleanup/unique.h"
#include "lib/report.h"

int NLIBCFileTouch(const char *path)
{
    if (path == nullptr) {
        NORV_LOG(LOG_ERR, "Bad parameters");
        return fail(kErrBadParameter);
    }
    if (NLIBCFileIsRegular(path))
        return 0;
    const UniqueFile file(fopen(path, "we"));
    if (!file) {
        NORV_LOG(LOG_ERR, "file exist: %s, errno=%m", path);
        return fail(kErrOpen);
    }
    return 0;
}

#include "lib/file.h"

#include <sys/stat.h>

bool NLIBCFileIsRegular(const char *path)
{
    struct stat status;
    return path != nullptr && stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

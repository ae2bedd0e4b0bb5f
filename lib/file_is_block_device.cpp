#include "lib/file.h"

#include <sys/stat.h>

bool file_is_block_device(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISBLK(status.st_mode);
}

#include <sys/stat.h>

#include "swap/swap.h"

bool is_block_device(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISBLK(status.st_mode);
}

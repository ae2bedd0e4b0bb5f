#include "disk/disk.h"

#include <cctype>
#include <cstring>

#include "lib/report.h"

static bool is_digit(char c)
{
    return isdigit(static_cast<unsigned char>(c)) != 0;
}

// Length of the name before its partition number.
static size_t disk_length(const char *path)
{
    if (disk_name_has_p(path)) {
        const char *p = strrchr(path, 'p');
        return p != nullptr && is_digit(p[1]) ? static_cast<size_t>(p - path) : strlen(path);
    }
    return strcspn(path, "0123456789");
}

int disk_partition_num_remove(const char *path, char *disk, int size)
{
    if (path == nullptr || disk == nullptr)
        return fail(kErrBadParameter);
    if (size < 0 || static_cast<size_t>(size) < strlen(path) + 1) {
        NORV_LOG(LOG_ERR, "buffer size of szDiskPath should be longer than string length of szPartPath");
        return fail(kErrBadParameter);
    }
    const size_t length = disk_length(path);
    memmove(disk, path, length);
    disk[length] = '\0';
    return 0;
}

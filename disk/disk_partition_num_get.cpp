#include "disk/disk.h"

#include <cstdio>
#include <cstring>

#include "lib/report.h"

int disk_partition_num_get(const char *path, char *disk, int size)
{
    if (path == nullptr || disk == nullptr || size < 2)
        return fail(kErrBadParameter);
    char format[32];
    snprintf(format, sizeof(format), disk_name_has_p(path) ? "%%%d[^p]p%%9d" : "%%%d[^1-9]%%9d", size - 1);
    int number = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int read = sscanf(path, format, disk, &number);
#pragma GCC diagnostic pop
    if (read == 2)
        return number;
    return read == 1 && strcmp(disk, path) == 0 ? 0 : fail(kErrBadParameter);
}

#include "disk/disk.h"

#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/report.h"

int disk_is_ssd(const char *path)
{
    if (path == nullptr)
        return fail(kErrBadParameter);
    char attribute[PATH_MAX], rotational = '\0';
    const int length = snprintf(attribute, sizeof(attribute), "/sys/block/%s/queue/rotational", disk_bare_name(path));
    if (length >= static_cast<int>(sizeof(attribute)))
        return fail(kErrBadParameter);
    const UniqueFd file(open(attribute, O_RDONLY | O_CLOEXEC));
    if (!file)
        return fail(kErrOpen);
    if (read(file.get(), &rotational, 1) != 1)
        return fail(kErrRead);
    return rotational == '0' ? 1 : 0;
}

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <unistd.h>

#include "disk/disk.h"
#include "lib/report.h"
#include "lib/string.h"
#include "storage/raid.h"

int raid_sysfs_get(const char *path, const char *name, char *out, size_t size)
{
    if (path == nullptr || name == nullptr || out == nullptr || size < 2)
        return fail(kErrBadParameter);
    char file[PATH_MAX];
    if (NLIBCStrSnprintf(file, sizeof(file), "/sys/block/%s/md/%s", disk_bare_name(path), name) < 0)
        return -1;
    const UniqueFd fd(open(file, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        if (errno == ENOENT || errno == ENODEV) // the latter while the array goes away
            return 1;
        return fail(kErrOpen);
    }
    const ssize_t length = TEMP_FAILURE_RETRY(read(fd.get(), out, size));
    if (length < 0 && errno == ENODEV)
        return 1;
    if (length < 0)
        return fail(kErrRead);
    if (static_cast<size_t>(length) == size)
        return fail(kErrBufferTooSmall);
    out[length] = '\0';
    return NLIBCStrTrimSpace(out, nullptr) < 0 ? -1 : 0;
}

#include "disk/disk.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include "autocleanup/unique.h"
#include "lib/report.h"

int disk_size_get(const char *path, uint64_t *sectors)
{
    if (path == nullptr || sectors == nullptr)
        return fail(kErrBadParameter);
    char device[64];
    if (disk_device_path_get(path, device, sizeof(device)) < 0)
        return -1;
    const UniqueFd disk(open(device, O_RDONLY | O_CLOEXEC));
    if (!disk) {
        const bool has_no_medium = errno == ENXIO;
        fail(kErrOpen);
        return has_no_medium ? 0 : -1;
    }
    uint64_t bytes = 0;
    if (ioctl(disk.get(), BLKGETSIZE64, &bytes) < 0)
        return fail(kErrSystemCall);
    *sectors = bytes >> 9;
    return 1;
}

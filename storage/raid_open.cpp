#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "lib/report.h"
#include "storage/raid_parts.h"

static constexpr unsigned long kArrayInfo = 0x80480911; // GET_ARRAY_INFO of linux/raid/md_u.h
static constexpr unsigned long kArrayStatus = 0x80040961;

int raid_path_number(const char *path)
{
    static constexpr char kPrefix[] = "/dev/md";
    if (path != nullptr && strncmp(path, kPrefix, strlen(kPrefix)) == 0) {
        const char *digits = path + strlen(kPrefix);
        const size_t length = strspn(digits, "0123456789");
        if (length > 0 && length < 10 && digits[length] == '\0')
            return atoi(digits);
    }
    NORV_LOG(LOG_DEBUG, "invalide path %s, errno=%m", path == nullptr ? "" : path);
    return fail(kErrNoneFoundBe);
}

int raid_request(int fd, unsigned long request, void *answer)
{
    if (ioctl(fd, request, answer) == 0)
        return 1;
    if (errno == ENODEV) { // also when it goes away in between
        fail(kErrDeviceSearch);
        return 0;
    }
    return fail(errno == EINTR ? kErrRaidIoctl : kErrRaidRead);
}

bool raid_request_is_missing()
{
    return errno == ENOTTY || errno == EINVAL;
}

int raid_open(const char *path, UniqueFd *fd, mdu_array_info_t *array)
{
    if (raid_path_number(path) < 0)
        return -1;
    fd->reset(open(path, O_RDONLY | O_CLOEXEC));
    if (!*fd) {
        if (errno == ENOENT || errno == ENODEV || errno == ENXIO)
            return 0;
        return fail(kErrOpen);
    }
    const int found = raid_request(fd->get(), kArrayInfo, array);
    if (found == 0) {
        int32_t unused = 0; // the driver of the appliance wants to be asked once more about an array that is not there
        ioctl(fd->get(), kArrayStatus, &unused);
    }
    return found;
}

int raid_is_detected(const char *path)
{
    UniqueFd fd;
    mdu_array_info_t array = {};
    return raid_open(path, &fd, &array);
}

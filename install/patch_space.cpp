#include "install/patch_space.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/text.h"

static constexpr uint64_t kReserveKib = 20482;

static bool image_bytes_get(const char *folder, uint64_t *bytes)
{
    char path[PATH_MAX + 16];
    snprintf(path, sizeof(path), "%s/hda1.tgz", folder);
    struct stat status;
    if (stat(path, &status) != 0) {
        NORV_LOG(LOG_ERR, "stat [%s] failed, errno=%d(%s)", path, errno, strerror(errno));
        return false;
    }
    *bytes = static_cast<uint64_t>(status.st_size);
    return true;
}

static bool required_kib_get(const char *folder, const char *version_path, uint64_t *kib)
{
    char text[64];
    if (NLIBCFileGetKeyValue(version_path, "extractsize", text, sizeof(text), 0) <= 0) {
        NORV_LOG(LOG_ERR, "fail to read [%s] from [%s]", "extractsize", version_path);
        return false;
    }
    uint64_t extract_kib = 0;
    if (!text_number(text, &extract_kib)) {
        NORV_LOG(LOG_ERR, "fail to convert [%s] to long long", text);
        return false;
    }
    uint64_t image_bytes = 0;
    return image_bytes_get(folder, &image_bytes) &&
           !__builtin_add_overflow(extract_kib, kReserveKib + image_bytes / 1024, kib);
}

static bool device_bytes_get(const char *device, uint64_t *bytes)
{
    char path[64];
    struct stat status;
    if (disk_device_path_get(device, path, sizeof(path)) < 0 || stat(path, &status) != 0)
        return false;
    if (!S_ISBLK(status.st_mode)) {
        NORV_LOG(LOG_ERR, "[%s] is not a block device.", path);
        return false;
    }
    const UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return false;
    const off_t end = lseek(fd.get(), 0, SEEK_END);
    *bytes = static_cast<uint64_t>(end);
    return end >= 0;
}

bool patch_fits_device(const char *folder, const char *version_path, const char *device)
{
    uint64_t required_kib = 0, required_bytes = 0, device_bytes = 0;
    if (!required_kib_get(folder, version_path, &required_kib))
        return false;
    const bool is_known = device_bytes_get(device, &device_bytes) &&
                          !__builtin_mul_overflow(required_kib, uint64_t{1024}, &required_bytes);
    if (is_known && device_bytes >= required_bytes)
        return true;
    if (is_known)
        NORV_LOG(LOG_ERR, "[%s] has [%lu] bytes but requires [%lu] bytes", device, device_bytes, required_bytes);
    NORV_LOG(LOG_ERR, "partition %s is not enough for %lu", device, required_kib);
    return false;
}

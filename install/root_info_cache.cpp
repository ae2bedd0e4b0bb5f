#include <cerrno>
#include <unistd.h>

#include "autocleanup/scoped_lock.h"
#include "install/system_status.h"
#include "lib/file.h"
#include "lib/report.h"

static constexpr char kCachePath[] = "/tmp/root_info.cache";
static constexpr char kLockPath[] = "/tmp/root_info.cache.lock";
static constexpr int kLockSeconds = 10;

int RootInfoCacheGet(const char *key, char *buffer, int size)
{
    const ScopedLock lock(kLockPath, kLockSeconds);
    if (!lock.held())
        return -1;
    if (access(kCachePath, F_OK) != 0)
        return 0;
    const int result = NLIBCFileGetKeyValue(kCachePath, key, buffer, size, 0);
    return result > 0 ? 1 : result;
}

int RootInfoCacheSet(const char *key, const char *value)
{
    const ScopedLock lock(kLockPath, kLockSeconds);
    if (lock.held() && NLIBCFileSetKeyValue(kCachePath, key, value, kConfFormat) == 1)
        return 0;
    NORV_LOG(LOG_ERR, "Failed to set key: [%s][0x%04X %s:%d]", key, NORV_ERR_ARGS);
    return -1;
}

int root_info_cache_delete()
{
    const ScopedLock lock(kLockPath, kLockSeconds);
    if (!lock.held())
        return -1;
    if (unlink(kCachePath) == 0 || errno == ENOENT)
        return 0;
    NORV_LOG(LOG_ERR, "Failed to delete cache data: [%m]");
    return -1;
}

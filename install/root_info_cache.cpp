#include <cerrno>
#include <unistd.h>

#include "install/system_status.h"
#include "lib/file.h"
#include "lib/lock.h"
#include "lib/report.h"

static constexpr char kCachePath[] = "/tmp/root_info.cache";
static constexpr char kLockPath[] = "/tmp/root_info.cache.lock";
static constexpr int kLockSeconds = 10;

int RootInfoCacheGet(const char *key, char *buffer, int size)
{
    int lock = -1;
    if (NLIBCFileLockTimeByFile(kLockPath, 1, kLockSeconds, &lock) != 1)
        return -1;
    int result = 0;
    if (access(kCachePath, F_OK) == 0)
        result = NLIBCFileGetKeyValue(kCachePath, key, buffer, size, 0);
    (void)NLIBCFileUnlockByFile(lock);
    return result > 0 ? 1 : result;
}

int RootInfoCacheSet(const char *key, const char *value)
{
    int lock = -1;
    int result = -1;
    if (NLIBCFileLockTimeByFile(kLockPath, 1, kLockSeconds, &lock) == 1) {
        result = NLIBCFileSetKeyValue(kCachePath, key, value, kConfFormat);
        (void)NLIBCFileUnlockByFile(lock);
    }
    if (result == 1)
        return 0;
    NORV_LOG(LOG_ERR, "Failed to set key: [%s][0x%04X %s:%d]", key, NORV_ERR_ARGS);
    return -1;
}

int root_info_cache_delete()
{
    int lock = -1;
    if (NLIBCFileLockTimeByFile(kLockPath, 1, kLockSeconds, &lock) != 1)
        return -1;
    const bool is_gone = unlink(kCachePath) == 0 || errno == ENOENT;
    if (!is_gone)
        NORV_LOG(LOG_ERR, "Failed to delete cache data: [%m]");
    (void)NLIBCFileUnlockByFile(lock);
    return is_gone ? 0 : -1;
}

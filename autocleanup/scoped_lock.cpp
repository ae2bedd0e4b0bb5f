#include "autocleanup/scoped_lock.h"

#include "autocleanup/keep_report.h"
#include "lib/lock.h"
#include "lib/report.h"

ScopedLock::ScopedLock(const char *path, int seconds, bool exclusive)
{
    if (NLIBCFileLockTimeByFile(path, exclusive ? 1 : 0, seconds, &fd_) != 1)
        NORV_LOG(LOG_ERR, "Failed to get lock[0x%04X %s:%d]", NORV_ERR_ARGS);
}

ScopedLock::~ScopedLock()
{
    const KeepReport keep;
    if (held() && NLIBCFileUnlockByFile(fd_) != 1)
        NORV_LOG(LOG_ERR, "Failed to unlock[0x%04X %s:%d]", NORV_ERR_ARGS);
}

#include <unistd.h>

#include "install/cgi.h"
#include "install/install_lock.h"
#include "install/progress.h"
#include "install/web_progress.h"
#include "lib/report.h"

int SetupInstall(int *fd_out)
{
    cgi_begin();
    if (access("/.memtest", F_OK) == 0) {
        web_error_set_code(kCodeMemoryTest);
        return -1;
    }
    // Not close-on-exec: should this process be killed, no other install begins to format while installer.sh still
    // does.
    UniqueFd lock;
    const LockOutcome outcome = install_lock_take(0, &lock);
    if (outcome == LockOutcome::kNoFile)
        NORV_LOG(LOG_ERR, "create lock file fail [%m]");
    if (outcome != LockOutcome::kTaken) {
        web_error_set_code(kCodeLock);
        return -1;
    }
    unlink(kInstallProgressPath);
    *fd_out = lock.release();
    return 0;
}

#include "findhost/findhost.h"
#include "install/install_lock.h"
#include "install/system_status.h"
#include "lib/report.h"

static int status_now()
{
    if (gblMemTest != 0)
        return kFhostMemTesting;
    if (IsInstallLocked())
        return kFhostUpdating;
    switch (gSysStatus) {
    case SYSTEM_NORMAL:
        if (gblSystemRecoverable != 0)
            return kFhostRecoverable;
        return gblAsstHasSySMigrat != 0 ? kFhostMigratable : kFhostCrashed;
    case SYSTEM_CRASHED:
        return kFhostCrashed;
    case SYSTEM_NOT_INSTALLED:
        return kFhostNotInstalled;
    default:
        NORV_LOG(LOG_ERR, "unknown system status: %d", gSysStatus);
        return kFhostNotInstalled;
    }
}

int FHOSTGetStatus()
{
    const int status = status_now();
    client_status_write(status);
    return status;
}

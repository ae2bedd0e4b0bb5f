#include <cstdio>

#include "install/patch.h"
#include "install/recoverable.h"
#include "install/system_status.h"
#include "lib/proc.h"
#include "lib/report.h"

int RunRecoverUpdater(const char *updater_path)
{
    const int status = NLIBCExecl(updater_path, kForkNullStreams, "-r", kRecoverMountPoint, nullptr);
    NORV_LOG(LOG_ERR, "Executing %s -r %s [%d]", updater_path, kRecoverMountPoint, status);
    if (status == 0)
        return kPatchGood;
    syslog(LOG_ERR, "recover system image failed [%d]", status);
    fprintf(stderr, "recover system image failed [%d]", status);
    int result = -status;
    if (status == 255)
        result = kPatchUpdaterRefused;
    else if (status < 0)
        result = kPatchFailed;
    update_progress_set(result);
    gblSystemRecoverable = 0;
    file_touch_flushed(kRecoverFailPath);
    if (root_info_cache_delete() != 0)
        NORV_LOG(LOG_ERR, "Failed to delete cache");
    return result;
}

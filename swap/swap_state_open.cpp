#include "lib/lock.h"
#include "lib/report.h"
#include "swap/swap_json.h"

int swap_state_open(SwapStateFile *file)
{
    if (NLIBCFileLockTimeByFile(kSwapLockPath, 1, kSwapLockSeconds, file->lock.address()) != 1) {
        NORV_LOG(LOG_ERR, "Failed to lock %s", kSwapLockPath);
        NORV_LOG(LOG_ERR, "Failed to call NLIBCSwapJsonFileLock");
        return -1;
    }
    file->object.reset(swap_json_file_read());
    if (file->object)
        return 0;
    NORV_LOG(LOG_ERR, "Failed to call NLIBCSwapJsonFileRead");
    return -1;
}

#include <cstdlib>

#include "install/patch.h"
#include "install/system_status.h"
#include "lib/file.h"
#include "lib/report.h"

static constexpr long kFirstBuildWithLimit = 40658;

int CheckPartitionVersion(const char *version_path)
{
    const long current = GetRootPartitionVersion();
    char text[32];
    if (NLIBCFileGetKeyValue(version_path, "buildnumber", text, sizeof(text), 0) <= 0) {
        NORV_LOG(LOG_ERR, "Get patch build number failed");
        return 0;
    }
    const long build = strtol(text, nullptr, 10);
    if (build < kFirstBuildWithLimit) {
        NORV_LOG(LOG_ERR, "Patch version is: [%ld], ignore the partition version check", build);
        return 1;
    }
    if (NLIBCFileGetKeyValue(version_path, "partitionversionlimit", text, sizeof(text), 0) <= 0) {
        NORV_LOG(LOG_ERR, "Get patch partition version limit Key Fail");
        return 0;
    }
    const long limit = strtol(text, nullptr, 10);
    if (limit <= current)
        return 1;
    NORV_LOG(LOG_ERR, "Check partition version Fail, Current partition = %ld, Patch limit partition = %ld", current,
             limit);
    return 0;
}

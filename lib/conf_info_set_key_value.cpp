#include "lib/conf.h"

#include "lib/file.h"
#include "lib/lock.h"
#include "lib/report.h"

int NLIBCConfInfoSetKeyValue(const char *key, const char *value)
{
    static constexpr int kLockSeconds = 5;
    if (key == nullptr || value == nullptr)
        return fail(kErrBadParameter);
    NLIBCFileLock(kConfLockWord, kLockSeconds);
    const int result = NLIBCFileSetKeyValue(kConfPath, key, value, kConfFormat);
    NLIBCFileUnlock(kConfUnlockWord);
    return result == 1 ? 0 : -1;
}

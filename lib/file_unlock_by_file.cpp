#include <sys/file.h>
#include <unistd.h>

#include "lib/lock.h"
#include "lib/report.h"

int NLIBCFileUnlockByFile(int fd)
{
    if (fd < 0) {
        fail(kErrBadParameter);
        return 0;
    }
    const bool is_unlocked = flock(fd, LOCK_UN) == 0;
    if (!is_unlocked)
        fail(kErrUnlock);
    if (close(fd) != 0 && is_unlocked)
        return fail(kErrClose), 0;
    return is_unlocked ? 1 : 0; // the lock went with the descriptor at the latest
}

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
    if (flock(fd, LOCK_UN) != 0) {
        fail(kErrUnlock);
        return 0;
    }
    if (close(fd) != 0) {
        fail(kErrClose);
        return 0;
    }
    return 1;
}

#include <fcntl.h>
#include <sys/file.h>

#include "autocleanup/unique.h"
#include "install/install_lock.h"

bool IsInstallLocked()
{
    const UniqueFd fd(open(kInstallLockPath, O_RDONLY | O_CREAT | O_CLOEXEC, 0770));
    if (!fd || flock(fd.get(), LOCK_SH | LOCK_NB) != 0)
        return true;
    flock(fd.get(), LOCK_UN);
    return false;
}

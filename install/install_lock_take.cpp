#include <fcntl.h>
#include <sys/file.h>

#include "install/install_lock.h"

LockOutcome install_lock_take(int open_flags, UniqueFd *lock, mode_t mode)
{
    UniqueFd file(open(kInstallLockPath, O_RDWR | O_CREAT | open_flags, mode)); // NOLINT(android-cloexec-open)
    if (!file)
        return LockOutcome::kNoFile;
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0)
        return LockOutcome::kHeld;
    lock->reset(file.release());
    return LockOutcome::kTaken;
}

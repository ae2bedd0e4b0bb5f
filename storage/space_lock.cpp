#include <fcntl.h>
#include <iterator>
#include <sys/ipc.h>

#include "autocleanup/scoped_umask.h"
#include "autocleanup/unique.h"
#include "lib/report.h"
#include "lib/semaphore.h"
#include "storage/space.h"

static constexpr char kFolder[] = "/run/space/lock";

// By SpaceLock. Other programs share the files, so their names stay as they are, slips included.
static constexpr const char *kFiles[] = {
    "/run/space/lock/action_batch.lock",
    "/run/space/lock/action_lvm_vg.lock",
    "/run/space/lock/action_service.lock",
    "/run/space/lock/action_get_seq.lock",
    "/run/space/lock/action_virtual_repo_conf.lock",
    "/run/space/lock/action_virtuak_dsik_conf.lock",
    "/run/space/lock/action_iscsi_all_conf.lock",
    "/run/space/lock/action_data_scrubbing_conf.lock",
};
static_assert(kSpaceLockForever == kSemaphoreForever && kSpaceLockNoWait == kSemaphoreNoWait);

int space_lock(int id, int timeout)
{
    if (id < 0 || id >= static_cast<int>(std::size(kFiles)))
        return fail(kErrBadParameter);
    const ScopedUmask mask_before(0);
    space_execl("/bin/mkdir", "-p", kFolder, nullptr);
    umask(022);
    const UniqueFd file(open(kFiles[id], O_RDONLY | O_CREAT | O_CLOEXEC, 0666));
    if (!file)
        return fail(kErrOpen);
    const key_t key = ftok(kFiles[id], 0);
    if (key == -1)
        return fail(kErrSystemCall);
    const int semaphore = semaphore_open(key);
    if (semaphore < 0 || semaphore_take(semaphore, timeout) != 0)
        return -1;
    return semaphore;
}

int space_unlock(int semaphore)
{
    return semaphore_give(semaphore);
}

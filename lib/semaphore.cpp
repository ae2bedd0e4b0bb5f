#include "lib/semaphore.h"

#include <cerrno>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include "lib/report.h"

static constexpr int kMode = 0666;
static constexpr useconds_t kLookAgainUs = 10'000; // how long a maker may take between its two calls, in steps
static constexpr int kLooks = 100;

// The fourth argument of semctl is left to its caller to declare.
union SemaphoreArgument {
    int value;
    struct semid_ds *status;
};

static int value_set(int id)
{
    return semctl(id, 0, SETVAL, SemaphoreArgument{.value = 1});
}

// A set that was made and then neither set nor used: one that was set has the process that did it, a used one the time
// of its last change. Who sets it to 0 holds it.
static bool is_unset(int id)
{
    struct semid_ds status = {};
    return semctl(id, 0, GETVAL) == 0 && semctl(id, 0, GETPID) == 0 &&
           semctl(id, 0, IPC_STAT, SemaphoreArgument{.status = &status}) == 0 && status.sem_otime == 0;
}

int semaphore_open(key_t key)
{
    int id = semget(key, 1, IPC_CREAT | IPC_EXCL | kMode);
    if (id >= 0)
        return value_set(id) == 0 ? id : fail(kErrSystemCall);
    if (errno == EEXIST)
        id = semget(key, 1, kMode);
    if (id < 0)
        return fail(kErrSystemCall);
    for (int looks = kLooks; is_unset(id); looks--) {
        if (looks == 0)
            return value_set(id) == 0 ? id : fail(kErrSystemCall);
        usleep(kLookAgainUs);
    }
    return id;
}

int semaphore_take(int id, int seconds)
{
    struct sembuf take = {.sem_num = 0, .sem_op = -1, .sem_flg = SEM_UNDO};
    if (seconds == kSemaphoreNoWait)
        take.sem_flg |= IPC_NOWAIT;
    const bool has_limit = seconds != kSemaphoreNoWait && seconds != kSemaphoreForever;
    const timespec limit = {.tv_sec = seconds, .tv_nsec = 0};
    int result;
    do
        result = has_limit ? semtimedop(id, &take, 1, &limit) : semop(id, &take, 1);
    while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : fail(kErrStorageLock);
}

int semaphore_give(int id)
{
    struct sembuf give = {.sem_num = 0, .sem_op = 1, .sem_flg = SEM_UNDO};
    if (semop(id, &give, 1) != 0)
        return fail(kErrUnlock);
    return 0;
}

#include "boot/boot_lock.h"

#include <cerrno>
#include <cstdio>

#include "autocleanup/unique.h"
#include "boot/boot_partition.h"
#include "lib/report.h"
#include "lib/semaphore.h"

static constexpr char kFlagPath[] = "/proc/sys/kernel/norv_install_flag";

static bool lock_is_held = false; // a second release would let two in

static bool install_flag_is_set()
{
    const UniqueFile file(fopen(kFlagPath, "re"));
    return file && fgetc(file.get()) == '1';
}

static void install_flag_set(const char *function, bool is_set)
{
    const UniqueFile file(fopen(kFlagPath, "we"));
    if (!file) {
        NORV_LOG_OLD(LOG_ERR, function, ": failed to open %s", kFlagPath);
        return;
    }
    if (fputs(is_set ? "1" : "0", file.get()) >= 0 && fflush(file.get()) == 0)
        return;
    if (is_set)
        NORV_LOG_OLD(LOG_ERR, function, ": failed to inc refcnt on %s", kFlagPath);
    else
        NORV_LOG_OLD(LOG_ERR, function, ": failed to dec refcnt on %s", kFlagPath);
}

// The id of the semaphore; -1, logged.
static int NORVBootSemGet()
{
    const int id = semaphore_open(kBootSemaphoreKey);
    if (id < 0)
        syslog(LOG_ERR, "NORVBootSemGet fail\n");
    return id;
}

static bool semaphore_changed(int id, int result)
{
    if (id >= 0 && result != 0)
        syslog(LOG_ERR, "semop fail semid %d errno %d\n", id, errno);
    return result == 0;
}

int boot_lock_take(bool *holder_died)
{
    *holder_died = false;
    if (lock_is_held)
        return 0;
    const int id = NORVBootSemGet();
    if (!semaphore_changed(id, id >= 0 ? semaphore_take(id, kSemaphoreForever) : -1)) {
        syslog(LOG_ERR, "Wait fail");
        return -1;
    }
    lock_is_held = true;
    *holder_died = install_flag_is_set(); // the kernel gives back the lock, and nobody the flag
    install_flag_set(__func__, true);
    return 0;
}

void boot_lock_give()
{
    if (!lock_is_held)
        return;
    install_flag_set(__func__, false);
    lock_is_held = false;
    const int id = NORVBootSemGet();
    if (!semaphore_changed(id, id >= 0 ? semaphore_give(id) : -1))
        syslog(LOG_ERR, "Signal fail");
}

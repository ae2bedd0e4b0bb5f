#include "panel/lcm.h"

#include <cstdint>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "lib/report.h"

static constexpr char kSharedPath[] = "/tmp/lcm/sharemem";

char *lcm_shared_byte(int flags)
{
    const key_t key = ftok(kSharedPath, 1);
    const int id = key == -1 ? -1 : shmget(key, 1, flags); // -1 would name a segment of its own
    if (id == -1) {
        NORV_LOG(LOG_ERR, "Fail to shmget from LCM module. Error=%m");
        return nullptr;
    }
    void *shared = shmat(id, nullptr, 0);
    if (reinterpret_cast<intptr_t>(shared) == -1) {
        NORV_LOG(LOG_ERR, "Fail to shmat form LCM module. Error=%m");
        return nullptr;
    }
    return static_cast<char *>(shared);
}

// Very many processes want one lock. Whoever has it is alone, all get it, and one in ten dies with it.
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "boot/boot_lock.h"
#include "install/install_lock.h"
#include "lib/lock.h"
#include "manutil/vender.h"
#include "storage/space.h"
#include "swap/swap_json.h"
#include "tests/load/load.h"
#include "tests/support/private_root.h"

namespace
{

constexpr int kBrief = 60, kFull = 1000;
constexpr useconds_t kLookAgain_us = 20'000, kHeld_us = 100;

// Takes a lock, calls `work` and gives it back; false when it could not be had.
using Turn = bool (*)(void (*work)());

bool install_turn(void (*work)())
{
    UniqueFd lock;
    LockOutcome outcome;
    while ((outcome = install_lock_take(O_CLOEXEC, &lock)) == LockOutcome::kHeld)
        usleep(kLookAgain_us);
    if (outcome != LockOutcome::kTaken)
        return false;
    work();
    return true;
}

bool timed_turn(void (*work)())
{
    int fd = -1;
    if (NLIBCFileLockTimeByFile("/tmp/root_info.cache.lock", 1, -1, &fd) != 1)
        return false;
    work();
    return NLIBCFileUnlockByFile(fd) == 1;
}

bool boot_turn(void (*work)())
{
    bool holder_died = false;
    if (boot_lock_take(&holder_died) != 0)
        return false;
    work();
    boot_lock_give();
    return true;
}

template <SpaceLock kLock> bool space_turn(void (*work)())
{
    const int semaphore = space_lock(kLock, kSpaceLockForever);
    if (semaphore < 0)
        return false;
    work();
    return space_unlock(semaphore) == 0;
}

bool record_turn(void (*work)())
{
    if (NORVManutilVenderSemaphoreEnter() != 0)
        return false;
    work();
    return NORVManutilVenderSemaphoreRelease() == 0;
}

bool swap_turn(void (*work)())
{
    SwapStateFile state;
    if (swap_state_open(&state) != 0)
        return false;
    work();
    return true;
}

struct Lock {
    const char *name, *what;
    Turn turn;
};
const Lock kLocks[] = {
    {"Install", "install lock", install_turn},
    {"Timed", "timed file lock", timed_turn},
    {"Boot", "boot semaphore", boot_turn},
    {"SpaceBatch", "storage semaphore, batch", space_turn<kSpaceLockBatch>},
    {"SpaceScrubbing", "storage semaphore, scrubbing", space_turn<kSpaceLockDataScrubbing>},
    {"Record", "semaphore of the unit's record", record_turn},
    {"Swap", "swap lock", swap_turn},
};

struct Seen {
    std::atomic<int> inside, most_inside, turns, number;
};
Seen *gSeen = nullptr; // shared with the contenders

void alone_for_a_while()
{
    const int inside = ++gSeen->inside;
    for (int most = gSeen->most_inside; most < inside && !gSeen->most_inside.compare_exchange_weak(most, inside);)
        continue;
    usleep(kHeld_us);
    gSeen->inside--;
    if (++gSeen->turns % 10 == 0)
        raise(SIGKILL);
}

class Contenders : public testing::TestWithParam<Lock>
{
};

TEST_P(Contenders, OneAtATime)
{
    const int count = load_size(kBrief, kFull);
    void *page = mmap(nullptr, sizeof(Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    gSeen = new (page) Seen;
    const PrivateRoot root;
    root.write("/run/space/lock/folder", "");
    root.write("/proc/sys/kernel/norv_install_flag", "0");
    const int failures = root.run([count] {
        if (unshare(CLONE_NEWIPC) != 0)
            return -1;
        std::vector<pid_t> contenders;
        for (int i = 0; i < count; i++) {
            const pid_t pid = fork();
            if (pid == 0)
                _exit(GetParam().turn(alone_for_a_while) ? 0 : 1);
            contenders.push_back(pid);
        }
        int failed = 0;
        for (const pid_t pid : contenders) {
            int status = -1;
            waitpid(pid, &status, 0);
            failed += status != 0 && !(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) ? 1 : 0;
        }
        return failed;
    });
    EXPECT_EQ(failures, 0) << root.log();
    EXPECT_EQ(gSeen->most_inside, 1);
    EXPECT_EQ(gSeen->turns, count);
    note(std::string(GetParam().what) + ": " + std::to_string(count) + " contenders",
         "never more than " + std::to_string(gSeen->most_inside) + " holder, " + std::to_string(gSeen->turns) +
             " turns; every tenth was killed with it");
    munmap(page, sizeof(Seen));
}

INSTANTIATE_TEST_SUITE_P(Locks, Contenders, testing::ValuesIn(kLocks),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace

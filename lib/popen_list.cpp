#include "lib/popen_list.h"

#include <atomic>
#include <sched.h>

static constexpr int kSpinTries = 65536;

PopenEntry *popen_list = nullptr;
static constinit std::atomic<int> spin_word = 0;

void popen_list_take()
{
    for (;; sched_yield())
        for (int tries = 0; tries < kSpinTries; tries++)
            if (spin_word.exchange(1, std::memory_order_acquire) == 0)
                return;
}

void popen_list_give()
{
    spin_word.store(0, std::memory_order_release);
}

// A lock between processes: a System V semaphore set of one, worth 1 when free. Every change carries SEM_UNDO, so the
// kernel gives back what a holder that died had taken.
#pragma once

#include <sys/types.h>

inline constexpr int kSemaphoreForever = -1; // for the time limits below
inline constexpr int kSemaphoreNoWait = -2;

// Opens the set of a key for everybody (mode 0666), and makes it when there is none. A set whose maker has not set it
// to 1 yet is waited for; when the maker was killed in between, it is set to 1 here. Returns the id, 0 or above; -1
// with 0x8100 and errno.
[[nodiscard]] int semaphore_open(key_t key);

// Takes the semaphore. `seconds`: how long to wait, or one of the two words above. An interrupted wait goes on.
// Returns 0; -1 with 0x2e00 and errno: EAGAIN when the time is over, EINVAL for another number below 0.
[[nodiscard]] int semaphore_take(int id, int seconds);

// Gives it back. Returns 0; -1 with 0x0500 and errno.
int semaphore_give(int id);

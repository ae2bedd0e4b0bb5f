// Locks on files. Mind the results: 1 is success.
#pragma once

// Takes a lock on a file, which is made (mode 0644) when missing and never removed.
//   exclusive  0 for a shared lock
//   seconds    how long to try, every 50 ms; 0 once; -1 for ever
//   fd         receives the descriptor that carries the lock, close-on-exec
// Returns 1; 0 with 0x0d00, 0x0900 (the file cannot be opened) or 0x0400 (refused to the end, or at once when the file
// cannot be locked at all). An interrupted try counts as refused.
[[nodiscard]] int NLIBCFileLockTimeByFile(const char *path, int exclusive, int seconds, int *fd);

// Gives the lock back and closes, also when the former fails. Returns 1; 0 with 0x0d00, 0x0500 or 0xe300.
[[nodiscard]] int NLIBCFileUnlockByFile(int fd);

// The configuration lock of a full system. Here there is nothing to guard: both return 0 and have no effect.
int NLIBCFileLock(int lock_word, int seconds);
int NLIBCFileUnlock(int lock_word);

inline constexpr int kConfLockWord = 0x806;
inline constexpr int kConfUnlockWord = 0x800;

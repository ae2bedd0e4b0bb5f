// The lock that lets one install run at a time: an exclusive flock for as long as the work takes.
#pragma once

#include "autocleanup/unique.h"

inline constexpr char kInstallLockPath[] = "/tmp/install.lock";

// Whether an install runs: the lock cannot be shared, or its file (made with mode 0770 when missing) not be opened. For
// the moment of the question the lock is shared, so an install that starts just then is refused.
[[nodiscard]] bool IsInstallLocked();

enum class LockOutcome : char { kTaken, kNoFile, kHeld };

// Takes the lock for as long as `lock`, else left alone, is open in any process. kNoFile comes with errno.
//   open_flags  O_CLOEXEC, or 0 for a lock that the programs started meanwhile hold too
//   mode        of its file when that is missing
[[nodiscard]] LockOutcome install_lock_take(int open_flags, UniqueFd *lock, mode_t mode = 0644);

// Begins an install for a web request: as cgi_begin, then takes the lock and removes the progress of the install
// before.
//   fd_out  receives the descriptor that carries the lock; programs started meanwhile inherit it
// Returns 0; -1, the error of the request set, with nothing changed, when a memory test or another install runs.
[[nodiscard]] int SetupInstall(int *fd_out);

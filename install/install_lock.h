// The lock that lets one install run at a time: an exclusive flock for as long as the work takes.
#pragma once

inline constexpr char kInstallLockPath[] = "/tmp/install.lock";

// Whether an install runs: the lock cannot be shared, or its file (made with mode 0770 when missing) not be opened. For
// the moment of the question the lock is shared, so an install that starts just then is refused.
[[nodiscard]] bool IsInstallLocked();

// Begins an install for a web request: sets PATH, takes the lock and removes the progress of the install before.
//   fd_out  receives the descriptor that carries the lock; programs started meanwhile inherit it
// Returns 0; -1, the error of the request set, with nothing changed, when a memory test or another install runs.
[[nodiscard]] int SetupInstall(int *fd_out);

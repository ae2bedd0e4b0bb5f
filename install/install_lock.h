// The lock that lets one install run at a time: an exclusive flock for as long as the work takes.
#pragma once

inline constexpr char kInstallLockPath[] = "/tmp/install.lock";

// Whether an install runs: the lock cannot be shared, or its file (made with mode 0770 when missing) not be opened. For
// the moment of the question the lock is shared, so an install that starts just then is refused.
[[nodiscard]] bool IsInstallLocked();

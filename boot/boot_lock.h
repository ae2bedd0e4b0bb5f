// The lock of the boot partition alone. While it is held the kernel knows that an install is going on.
#pragma once

// Waits for the lock; `holder_died` tells whether the last one who held it was killed. Returns 0; -1, logged.
[[nodiscard]] int boot_lock_take(bool *holder_died);
// Gives it back; nothing happens when this process does not hold it.
void boot_lock_give();

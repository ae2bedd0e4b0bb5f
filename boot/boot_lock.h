// The lock of the boot partition alone. While it is held the kernel knows that an install is going on.
#pragma once

// Waits for the lock. Returns 0; -1, logged.
[[nodiscard]] int boot_lock_take();
// Gives it back; nothing happens when this process does not hold it.
void boot_lock_give();

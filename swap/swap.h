// The swap device of the system, and devices that are swapped on by hand.
#pragma once

// The device: the mirror of all swap partitions on a model with arrays, else a partition of the first disk. Chosen
// once in the life of the process.
[[nodiscard]] const char *swap_device_path();

// Brings the array of the swap device up where it is down, and the device into use, unless the state file says that
// this is done; then compressed swap where the model and the settings want it. One process at a time.
// Returns 0, also when there is no device; -1, logged.
[[nodiscard]] int swap_start();
// Takes the device out of use and dismantles its array, unless the state file says that this is done; then takes
// compressed swap out of use. Returns 0; -1, logged.
[[nodiscard]] int swap_stop();

// Runs /sbin/mkswap on a device and swaps it on. Neither takes a lock nor touches the state file.
//   priority  1 to 32767; 0 or below lets the kernel choose
// Returns 0; -1, logged: 0x0d00 for NULL, 0x2a00 when mkswap fails, else as swap_on.
[[nodiscard]] int swap_make_and_on(const char *device, int priority);

// Swap a device on or off while the kernel's switch /proc/sys/kernel/norv_swap_flag is 1; afterwards it is 0.
// Return 0; -1, logged where the switch fails: 0x0d00 for NULL, 0x0900, 0x0b00, 0x8100.
[[nodiscard]] int swap_on(const char *device, int priority);
[[nodiscard]] int swap_off(const char *device);

// Whether /proc/swaps lists the device, 1 or 0; 0 when it cannot be read.
[[nodiscard]] int is_swap_on(const char *device);

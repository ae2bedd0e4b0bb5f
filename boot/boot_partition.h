// The boot partition, and the lock that all who touch it take: a System V semaphore that the kernel gives back when its
// holder dies.
#pragma once

inline constexpr int kBootSemaphoreKey = 0x9335808;
inline constexpr char kBootMountPoint[] = "/tmp/bootmnt";

// Takes the lock and mounts the boot partition at kBootMountPoint. Returns 0; -1: then the lock is free again.
[[nodiscard]] int MountBootPartition();

// Unmounts it and gives the lock back, if this process holds it. Returns 0 in any case.
int UmountBootPartition();

// The same for the partition of the board's firmware, at /boot/efi.
[[nodiscard]] int MountEfiPartition();
int UmountEfiPartition();

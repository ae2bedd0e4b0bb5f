// Volumes that are mounted for a while, by shell commands as the appliance's scripts do it.
#pragma once

// Makes the folder, mode 0755 less the umask, unless it is there. Returns 0; -1 (0x8100), also when something else has
// its name.
[[nodiscard]] int folder_make(const char *path);

// Makes the folder, flushes what is to be written and mounts the device there. Returns 0; -1, logged.
[[nodiscard]] int volume_mount(const char *device, const char *folder);

// Unmounts the folder by force and removes it, but for /mnt. Failures do not matter.
void volume_unmount(const char *folder);

// Whether something is mounted on the folder, as /proc/mounts tells; false without that list.
[[nodiscard]] bool volume_is_mounted(const char *folder);

// volume_mount that says so in the log first. Returns 1; 0 when it failed.
[[nodiscard]] int MountPartition(const char *device, const char *folder);

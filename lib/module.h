// Kernel modules, by the system calls alone: no search for a module by its name, no dependencies.
#pragma once

// Loads the module in a file. `args` as the kernel takes them, blank separated; "" for none. Returns 0; -1 with 0x0900
// or 0x8100, errno tells: EEXIST when it is loaded already.
[[nodiscard]] int module_load(const char *path, const char *args);
// Unloads a module. Returns 0; -1 with 0x8100, errno tells: ENOENT when it is not loaded, EWOULDBLOCK when in use.
[[nodiscard]] int module_unload(const char *name);

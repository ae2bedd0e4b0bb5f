// What kind of system a root folder holds. A question with `root` NULL is about this system.
#pragma once

#include <cstddef>

enum SystemEndian : int { kSystemEndianUnknown = -1, kSystemEndianBig = 1, kSystemEndianLittle = 2 };

// Each asks <root>/.system_info first and then, when that says nothing, the model name, of which an empty one has the
// byte order and word of this system. All return -1 when there is neither. Failures are logged.
[[nodiscard]] int system_endian_get(const char *root, const char *model);    // a SystemEndian
[[nodiscard]] int system_bit_get(const char *root, const char *model);       // 32 or 64
[[nodiscard]] int system_max_align_get(const char *root, const char *model); // bytes, of the database's records

// Puts the platform, the part of `unique` between its first and second '_', into `out` of `size` bytes. `conf_path` is
// a model description. Returns 0; -1 when there is no such part or it does not fit.
[[nodiscard]] int system_platform_get(const char *conf_path, char *out, size_t size);

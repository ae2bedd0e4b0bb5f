#pragma once

#include <cstdint>

// Milliseconds of the monotonic clock.
[[nodiscard]] int64_t now_ms();

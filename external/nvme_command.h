// The two NVMe admin commands that are sent, through the kernel's request. Neither changes anything.
#pragma once

#include <cstdint>
#include <span>

inline constexpr size_t kNvmeIdentifyBytes = 4096;
inline constexpr size_t kNvmeSmartBytes = 512;

// Each fills all of `answer`, which has the size above. They return 0; -1 with 0x8100.
[[nodiscard]] int nvme_identify_controller(int fd, std::span<uint8_t, kNvmeIdentifyBytes> answer);
[[nodiscard]] int nvme_smart_log(int fd, std::span<uint8_t, kNvmeSmartBytes> answer);

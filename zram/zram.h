// Swap on compressed memory: one device per processor core.
#pragma once

#include <cstdint>

// Number of cores as /proc/cpuinfo tells: the first "cpu cores" value, else its processors. -1 with 0x0900 (logged),
// or with 0x4000 when it names none.
[[nodiscard]] int zram_cores_get();
// Prints that number. Returns 0; -1 as above.
int zram_cores_print();

// Bytes of one device: of `cores` devices that share 60 % of `memory` bytes, in whole MiB.
[[nodiscard]] constexpr uint64_t zram_size(uint64_t memory, uint32_t cores)
{
    constexpr uint64_t kPercentOfMemory = 60;
    constexpr uint64_t kLowBits = (1U << 20) - 1;
    const uint64_t mib = memory * kPercentOfMemory / 100 / cores >> 20;
    // The low bits of the MiB, not of the bytes: one MiB more unless the share is whole TiB.
    return (mib + ((mib & kLowBits) != 0 ? 1 : 0)) << 20;
}

// Sizes the devices that have no size yet, makes missing nodes and swaps them on. What a single device refuses is
// passed over. Returns 0; -1 when memory or cores cannot be told.
[[nodiscard]] int zram_start();
// Swaps off those that are on. What a device refuses is passed over.
void zram_stop();

// The path of a device: "/dev/zram0".
struct ZramPath {
    char text[32];
};
[[nodiscard]] ZramPath zram_path(int index);

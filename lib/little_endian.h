// Unsigned integers as they stand in foreign bytes, the lowest byte first.
#pragma once
#include <cstddef>
#include <cstdint>

// Of 1 to 8 bytes.
[[nodiscard]] constexpr uint64_t little_endian_load(const uint8_t *bytes, size_t count)
{
    uint64_t value = 0;
    for (size_t i = count; i > 0; i--)
        value = value << 8 | bytes[i - 1];
    return value;
}

// The lower `count` bytes of `value`.
constexpr void little_endian_store(uint8_t *bytes, size_t count, uint64_t value)
{
    for (size_t i = 0; i < count; i++, value >>= 8)
        bytes[i] = static_cast<uint8_t>(value);
}

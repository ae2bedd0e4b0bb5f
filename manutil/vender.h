// The factory's record of one unit: hardware addresses, serial numbers. Reading and writing hold the record's
// semaphore.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t kVenderMacBytes = 6;
inline constexpr size_t kVenderSerialRoom = 32; // with the NUL

// Addresses are numbered from 1. Return 0; -1 with 0x2600 when the stored one fails its check, or what the access to
// the record left.
[[nodiscard]] int NORVManutilMacGet(int number, uint8_t *mac);
[[nodiscard]] int NORVManutilMacSet(int number, const uint8_t *mac);

// Reads the serial. Returns 0; -1 with 0x2600 when it fails its check or there is none.
[[nodiscard]] int NORVManutilSnGet(char *serial, size_t size);

// Stores the custom serial, at most 31 characters. Returns 0; -1 with 0x0d00 when it is longer.
[[nodiscard]] int NORVManutilCustomSnSet(const char *serial);

// The record's bytes.
#pragma once

#include <array>
#include <span>

#include "manutil/vender.h"

inline constexpr size_t kVenderBytes = 512;
using VenderBytes = std::array<uint8_t, kVenderBytes>;

void vender_encode(const VenderRecord &record, VenderBytes *out);
// False when the bytes are no record: of another layout, or damaged. `record` is then untouched.
[[nodiscard]] bool vender_decode(std::span<const uint8_t> bytes, VenderRecord *record);

// The check byte of an address: the complement of the sum of its bytes.
[[nodiscard]] uint8_t vender_mac_check(const uint8_t *address);
// The check value of a serial: the sum of its characters.
[[nodiscard]] unsigned vender_serial_check(const char *serial, size_t length);

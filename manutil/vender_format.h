// The record's bytes, and its file in a folder.
#pragma once

#include <array>
#include <span>

#include "manutil/vender.h"

inline constexpr size_t kVenderBytes = 512;
using VenderBytes = std::array<uint8_t, kVenderBytes>;

void vender_encode(const VenderRecord &record, VenderBytes *out);
// False when the bytes are no record: of another layout, or damaged. `record` is then untouched.
[[nodiscard]] bool vender_decode(std::span<const uint8_t> bytes, VenderRecord *record);

// Reads the file; without one the record is one in which nothing was ever set. Returns 0; -1 with 0x0a00, 0xfb00 when
// the folder's path is too long, or 0x2600 for a damaged record.
[[nodiscard]] int vender_file_read(const char *folder, VenderRecord *record);
// Replaces the file by a whole new one that is on the disk before it takes the name. Returns 0; -1 with 0x0b00,
// 0x2800 or 0xfb00: the file is then the old one, or, when only the folder was not flushed, the new one.
[[nodiscard]] int vender_file_write(const char *folder, const VenderRecord &record);

// The check byte of an address: the complement of the sum of its bytes.
[[nodiscard]] uint8_t vender_mac_check(const uint8_t *address);
// The check value of a serial: the sum of its characters.
[[nodiscard]] unsigned vender_serial_check(const char *serial, size_t length);

// The lamps of an enclosure's slots: one file each, which the kernel turns into the enclosure's own command. Shared by
// the operations of external/enclosure.h.
#pragma once

#include "external/enclosure.h"

inline constexpr const char *kLampNames[] = {"fault", "locate"}; // by EnclosureLamp

// Switches one lamp, by its file. Returns 0; -1 with 0x0b00.
[[nodiscard]] int enclosure_lamp_write(const char *path, bool is_on);

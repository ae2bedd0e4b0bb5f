// The model that the board names, and what its hardware can.
#pragma once

#include <cstddef>

// Reads the hardware version's first line, /proc/sys/kernel/norv_hw_version, up to "-j", cut to the room. False,
// `model` empty, when it cannot be read.
bool hardware_model_get(char *model, size_t size);

// What not every model's hardware has, by the number that deployments know it by.
enum HardwareCapability : int { kHardwareCpuTemperature = 4, kHardwareFanPwm = 7 };

// Whether the model of the description kDefaultsPath has it: every model does that kProductMissingCapabilities does not
// name.
[[nodiscard]] bool hardware_can(HardwareCapability capability);

// The model that the board names.
#pragma once

#include <cstddef>

// Reads the hardware version's first line, /proc/sys/kernel/norv_hw_version, up to "-j", cut to the room. False,
// `model` empty, when it cannot be read.
bool hardware_model_get(char *model, size_t size);

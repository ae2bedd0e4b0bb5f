// Where the kernel shows the fan controller.
#pragma once

#include <cstddef>

// Finds the control folder of the fan controller.
//   unit  0 for the machine itself, else the number of an expansion unit
//   path  room for `size` bytes; receives the folder with its closing slash
// Returns 0; -1 with 0x0d00, 0x0600 when the search failed, 0x0700 when there is no controller, 0x0a00 when its name
// cannot be read, 0xbe00 when it is another one, 0x0100.
[[nodiscard]] int fan_path_get(int unit, char *path, size_t size);

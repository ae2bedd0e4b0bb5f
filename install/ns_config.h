// What the first start of a freshly installed system is told: its name, its first user and its network.
#pragma once

#include "lib/hash.h"

// Writes marks and the script .ns_configure.sh on the system volume.
//   params  fields of the install form, which go into the script as they are
//   mount   where the volume of the patch is mounted; the system volume may be the same
// Returns 0; -1, logged, no script left.
[[nodiscard]] int PrepareNSConfig(const NLIBSZHASH *params, const char *mount);

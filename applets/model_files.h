// The steps of norvcfgen and norvhdcfgen that follow once the board has named its model. Today's board names none.
#pragma once

#include "external/cpld_info.h"

// Writes the six values of the model that a working copy holds to the key-value file `path`; none when `unique` is
// empty. Returns 0; -1 at the first value that cannot be set, which is told on standard output.
[[nodiscard]] int model_file_write(const NORVCfgInfo &model, const char *path);

// Makes the key-value file `path` of a disk from another unit of the same mass-production group this model's. Leaves
// it alone, and mostly says why on standard output, in any other case. Returns 0; -1 when a value cannot be set, which
// is told on standard output.
[[nodiscard]] int model_file_adopt(const NORVCfgInfo &model, const char *path);

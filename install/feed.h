// The update feed, a text of one tag and its value in each line. docs/update.md describes it.
#pragma once

#include <string_view>

#include "install/download.h"

// Finds the first patch for a model that is not older than this machine.
//   unique        the model
//   version_path  VERSION file of this machine
// Returns 0, `result` empty when the feed ends within that patch; -1, logged when the feed is malformed.
[[nodiscard]] int feed_parse(std::string_view text, const char *unique, const char *version_path, NewVersion *result);

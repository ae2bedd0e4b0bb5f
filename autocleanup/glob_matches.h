// Owns the matches of glob(3).
#pragma once

#include <glob.h>

struct GlobMatches {
    glob_t found = {};

    GlobMatches() = default;
    GlobMatches(const GlobMatches &) = delete;
    GlobMatches &operator=(const GlobMatches &) = delete;
    ~GlobMatches() { globfree(&found); }
};

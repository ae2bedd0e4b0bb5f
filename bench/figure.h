// How a benchmark that is a program of its own tells a figure. scripts/bench reads these lines.
#pragma once

#include <cstdio>

inline void figure_print(const char *name, double value, const char *unit)
{
    printf("%-44s %14.3f %s\n", name, value, unit);
}

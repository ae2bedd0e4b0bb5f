// Command lines for the shell, where the appliance's scripts set the form of the line.
#pragma once

#include <cstdio>
#include <cstdlib>

// Runs a line of less than 16384 bytes. Returns as system(3): the raw wait status; -1 also for a longer line.
template <typename... Words> int shell_run(const char *format, Words... words)
{
    char line[16384];
    if (static_cast<size_t>(snprintf(line, sizeof(line), format, words...)) >= sizeof(line))
        return -1;
    return system(line);
}

// How far a memory test has come.
#pragma once

#include <algorithm>

// Reads /tmp/memtester.progress: one line, "<current>/<total>". Returns 0; -1 when there is none, or, logged, when it
// cannot be read or is not of that form.
[[nodiscard]] int GetMemTestProgress(unsigned long *current, unsigned long *total);

// The same as hundredths of a percent, at most 9999.
constexpr unsigned mem_test_hundredths(unsigned long current, unsigned long total)
{
    const long double hundredths = static_cast<long double>(current) * 10000 / (static_cast<long double>(total) + 1);
    return static_cast<unsigned>(std::min(hundredths, 9999.0L));
}

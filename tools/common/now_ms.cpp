#include "tools/common/now_ms.h"

#include <ctime>

int64_t now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1000} + now.tv_nsec / 1'000'000;
}

#include <cstdio>

#include "zram/zram.h"

ZramPath zram_path(int index)
{
    ZramPath path;
    snprintf(path.text, sizeof(path.text), "/dev/zram%d", index);
    return path;
}

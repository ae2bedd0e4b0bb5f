#include "lib/file.h"
#include "swap/swap.h"
#include "zram/zram.h"

void zram_stop()
{
    const int cores = zram_cores_get();
    for (int index = 0; index < cores; index++) {
        const ZramPath path = zram_path(index);
        if (file_is_block_device(path.text) && is_swap_on(path.text) == 1)
            static_cast<void>(swap_off(path.text));
    }
}

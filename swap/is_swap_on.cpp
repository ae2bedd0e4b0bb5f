#include <cstring>

#include "swap/swap.h"
#include "swap/swap_json.h"

int is_swap_on(const char *device)
{
    const UniqueJson lines(device != nullptr ? swap_json_from_proc_swaps() : nullptr);
    const size_t count = lines ? json_object_array_length(lines.get()) : 0;
    for (size_t i = 0; i < count; i++) {
        const char *name = swap_json_get(json_object_array_get_idx(lines.get(), i), "Filename");
        if (name != nullptr && strcmp(name, device) == 0)
            return 1;
    }
    return 0;
}

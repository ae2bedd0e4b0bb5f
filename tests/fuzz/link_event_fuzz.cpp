// Link messages of route netlink. Input: a batch as the kernel would send it.
// Covers: net/link_event_handle.cpp(link_event_next)
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "net/link_event.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<uint8_t> exact(data, data + size);
    std::span<const uint8_t> rest(exact);
    LinkEvent event;
    while (link_event_next(&rest, &event)) {
        const size_t length = strnlen(event.name, sizeof(event.name));
        if (length == 0 || length == sizeof(event.name))
            abort();
    }
    return 0;
}

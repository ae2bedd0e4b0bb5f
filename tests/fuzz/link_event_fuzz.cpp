// Link messages of route netlink. Input: a batch as the kernel would send it.
// Covers: net/link_event_handle.cpp(link_event_next)

#include "net/link_event.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    std::span<const uint8_t> rest = bytes_of(input);
    LinkEvent event;
    while (link_event_next(&rest, &event)) {
        check(event.name[0] != '\0');
        check_ended(event.name);
    }
}

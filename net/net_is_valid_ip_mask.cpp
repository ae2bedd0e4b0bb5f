#include <arpa/inet.h>
#include <cctype>
#include <cstdlib>
#include <netinet/in.h>

#include "lib/report.h"
#include "lib/text.h"
#include "net/norvjnet.h"

static constexpr int kParts = 4;
static constexpr uint32_t kPartMax = 255;
static constexpr uint32_t kLoopback = 127;
static constexpr uint32_t kFirstMulticast = 224;

// Reads a dotted quad whose parts are octal, decimal or hexadecimal, as in C. Returns false when it is none.
static bool quad_read(const char *text, uint32_t *address)
{
    *address = 0;
    for (int part = 0; part < kParts; part++) {
        char *end = nullptr;
        if (isdigit(static_cast<unsigned char>(text[0])) == 0)
            return false;
        const unsigned long value = strtoul(text, &end, 0);
        if (value > kPartMax || *end != (part == kParts - 1 ? '\0' : '.'))
            return false;
        *address = *address << 8 | static_cast<uint32_t>(value);
        text = end + 1;
    }
    return true;
}

int net_is_valid_ip_mask(const char *ip, char (&mask)[kNetAddressRoom])
{
    uint32_t address = 0, mask_bits = 0;
    in_addr taken = {};
    if (ip == nullptr || text_view(mask).size() == sizeof(mask) || !quad_read(ip, &address) ||
        !quad_read(mask, &mask_bits))
        return 0;
    const uint32_t first = address >> 24, host_bits = ~mask_bits;
    if (first == kLoopback || first >= kFirstMulticast || mask_bits == 0 || (host_bits & (host_bits + 1)) != 0)
        return 0;
    const in_addr plain = {.s_addr = htonl(mask_bits)};
    inet_ntop(AF_INET, &plain, mask, sizeof(mask));
    if (inet_aton(ip, &taken) == 0 || inet_aton(mask, &taken) == 0)
        return 0;
    return host_bits == 0 || (address & host_bits) != host_bits ? 1 : 0;
}

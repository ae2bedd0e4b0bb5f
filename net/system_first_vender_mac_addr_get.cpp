#include <algorithm>
#include <cstdio>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "net/net.h"

int system_first_vender_mac_addr_get(uint8_t (&mac)[6])
{
    const UniqueFile file(fopen("/proc/sys/kernel/norv_mac_address1", "re"));
    if (!file)
        return fail(kErrOpen);
    unsigned part[6];
    if (fscanf(file.get(), "%02x%02x%02x%02x%02x%02x", &part[0], &part[1], &part[2], &part[3], &part[4], &part[5]) != 6)
        return fail(kErrBadFormat);
    std::copy(std::begin(part), std::end(part), mac);
    return 0;
}

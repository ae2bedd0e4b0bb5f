// What the kernel and the system's files tell of the network. Each input goes through every reader: /proc/net/dev,
// /proc/net/route, resolv.conf, the output of ps, and, as address, NUL, mask, the address test.
// Covers: net/net_process_scan.cpp(line_runs process_id net_process_scan) net/net_is_valid_ip_mask.cpp
// Covers: net/norvjnet_dns.cpp(net_name_server) net/net_stat.cpp(net_stat_read)
// Covers: net/norvjnet_gateway.cpp(net_gateway_read)
#include <algorithm>
#include <arpa/inet.h>

#include "autocleanup/unique.h"
#include "net/net_process_scan.h"
#include "net/net_text.h"
#include "net/norvjnet.h"
#include "tests/fuzz/fuzz.h"

namespace
{

void check_interfaces(const std::string &text)
{
    NET_STAT stats[8];
    const UniqueFile file = stream_of(text);
    const int count = net_stat_read(file.get(), stats, 8);
    check(count >= -1 && count <= 8);
    for (int i = 0; i < count; i++)
        check(stats[i].nVersion == 1 && strnlen(stats[i].szName, sizeof(stats[i].szName)) < sizeof(stats[i].szName));
}

void check_gateway(const std::string &text)
{
    char gateway[16] = "";
    const UniqueFile file = stream_of(text);
    in_addr address;
    check(net_gateway_read(file.get(), gateway, sizeof(gateway)) <= 0);
    check(gateway[0] == '\0' || inet_pton(AF_INET, gateway, &address) == 1);
}

void check_processes(const std::string &text)
{
    pid_t found[4];
    const int count = net_process_scan(text, "/sbin/udhcpc -i eth1", found);
    check(count >= 0 && count <= 4 && std::all_of(found, found + count, [](pid_t id) { return id > 1; }));
}

// What passes is what the C library takes, too, and an address inside its subnet.
void check_address(const std::string &text)
{
    char mask[kNetAddressRoom] = {};
    const std::string ip = text.c_str();
    if (ip.size() < text.size())
        memcpy(mask, text.data() + ip.size() + 1, std::min(sizeof(mask), text.size() - ip.size() - 1));
    if (net_is_valid_ip_mask(ip.c_str(), mask) == 0)
        return;
    in_addr address, bits;
    check(inet_aton(ip.c_str(), &address) == 1 && inet_pton(AF_INET, mask, &bits) == 1 && bits.s_addr != 0);
    check(ip.find_first_not_of("0123456789abcdefABCDEFxX.") == std::string::npos);
    check(ntohl(bits.s_addr) == UINT32_MAX || (address.s_addr | bits.s_addr) != UINT32_MAX);
    check((ntohl(address.s_addr) >> 24) < 224 && (ntohl(address.s_addr) >> 24) != 127);
}

} // namespace

void fuzz_one(std::string_view input)
{
    const std::string text(input);
    check_address(text);
    check_processes(text);
    check(net_name_server(input).size() <= input.size());
    check_interfaces(text);
    check_gateway(text);
}

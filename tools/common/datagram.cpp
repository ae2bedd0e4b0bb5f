#include "tools/common/datagram.h"

#include <arpa/inet.h>
#include <cstring>
#include <netinet/ip.h>
#include <netinet/udp.h>

static_assert(sizeof(iphdr) + sizeof(udphdr) == kDatagramHeadBytes);

static uint16_t header_checksum(const iphdr &header)
{
    uint16_t words[sizeof(header) / 2];
    memcpy(words, &header, sizeof(header));
    uint32_t sum = 0;
    for (const uint16_t word : words)
        sum += word;
    sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~(sum + (sum >> 16)));
}

size_t datagram_build(const DatagramRoute &route, std::span<const uint8_t> payload, std::span<uint8_t> out)
{
    const size_t udp_bytes = sizeof(udphdr) + payload.size(), bytes = sizeof(iphdr) + udp_bytes;
    iphdr ip = {};
    ip.version = 4;
    ip.ihl = sizeof(ip) / 4;
    ip.tot_len = htons(static_cast<uint16_t>(bytes));
    ip.ttl = 64;
    ip.protocol = IPPROTO_UDP;
    ip.saddr = route.source_ip;
    ip.daddr = route.destination_ip;
    ip.check = header_checksum(ip);
    udphdr udp = {};
    udp.source = htons(route.source_port);
    udp.dest = htons(route.destination_port);
    udp.len = htons(static_cast<uint16_t>(udp_bytes));
    memcpy(out.data(), &ip, sizeof(ip));
    memcpy(out.data() + sizeof(ip), &udp, sizeof(udp));
    if (!payload.empty())
        memcpy(out.data() + kDatagramHeadBytes, payload.data(), payload.size());
    return bytes;
}

std::span<const uint8_t> datagram_open(std::span<const uint8_t> bytes, DatagramRoute *route)
{
    iphdr ip;
    udphdr udp;
    if (bytes.size() < sizeof(ip))
        return {};
    memcpy(&ip, bytes.data(), sizeof(ip));
    const size_t ip_bytes = ip.ihl * 4U;
    if (ip.version != 4 || ip.protocol != IPPROTO_UDP || ip_bytes < sizeof(ip) || bytes.size() < ip_bytes + sizeof(udp))
        return {};
    memcpy(&udp, bytes.data() + ip_bytes, sizeof(udp));
    const size_t udp_bytes = ntohs(udp.len);
    if (udp_bytes < sizeof(udp) || bytes.size() < ip_bytes + udp_bytes)
        return {};
    *route = {ip.saddr, ip.daddr, ntohs(udp.source), ntohs(udp.dest)};
    return bytes.subspan(ip_bytes + sizeof(udp), udp_bytes - sizeof(udp));
}

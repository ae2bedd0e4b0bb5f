#include "tools/norvfind/wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr uint16_t kAppliancePort = 1234; // replies come from it

bool complain(const char *what)
{
    fprintf(stderr, "norvfind: %s: %s\n", what, strerror(errno));
    return false;
}

Port *port_find(std::vector<Port> *ports, const char *name)
{
    const auto found = std::find_if(ports->begin(), ports->end(), [&](const Port &port) { return port.name == name; });
    return found != ports->end() ? &*found : nullptr;
}

bool is_wanted(const ifaddrs &entry, const std::vector<std::string> &names)
{
    constexpr unsigned kNeeded = IFF_UP | IFF_RUNNING | IFF_BROADCAST;
    if ((entry.ifa_flags & kNeeded) != kNeeded || (entry.ifa_flags & IFF_LOOPBACK) != 0)
        return false;
    return names.empty() || std::find(names.begin(), names.end(), entry.ifa_name) != names.end();
}

bool ports_list(const std::vector<std::string> &names, std::vector<Port> *ports)
{
    ifaddrs *entries = nullptr;
    if (getifaddrs(&entries) != 0)
        return complain("interfaces");
    for (const ifaddrs *entry = entries; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET || !is_wanted(*entry, names))
            continue;
        sockaddr_ll link;
        memcpy(&link, entry->ifa_addr, sizeof(link));
        Port port = {entry->ifa_name, link.sll_ifindex, {}, 0};
        memcpy(port.mac, link.sll_addr, sizeof(port.mac));
        ports->push_back(port);
    }
    for (const ifaddrs *entry = entries; entry != nullptr; entry = entry->ifa_next)
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET)
            if (Port *port = port_find(ports, entry->ifa_name); port != nullptr && port->ip == 0) {
                sockaddr_in address;
                memcpy(&address, entry->ifa_addr, sizeof(address));
                port->ip = address.sin_addr.s_addr;
            }
    freeifaddrs(entries);
    if (ports->empty())
        fprintf(stderr, "norvfind: no running interface%s\n", names.empty() ? "" : " of that name");
    return !ports->empty();
}

bool udp_listen(Wire *wire)
{
    wire->listener = UniqueFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    any.sin_port = htons(wire->udp_port);
    if (!wire->listener || setsockopt(wire->listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        setsockopt(wire->listener.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) != 0 ||
        bind(wire->listener.get(), reinterpret_cast<const sockaddr *>(&any), sizeof(any)) != 0)
        return complain("socket");
    fprintf(stderr, "norvfind: no right to use frames: appliances on a foreign subnet may not be heard\n");
    return true;
}

// The UDP payload of a frame without its Ethernet header, when it may come from an appliance.
std::span<const uint8_t> frame_payload(std::span<const uint8_t> frame, uint16_t udp_port, uint32_t *source_ip)
{
    iphdr ip;
    udphdr udp;
    if (frame.size() < sizeof(ip))
        return {};
    memcpy(&ip, frame.data(), sizeof(ip));
    const size_t ip_bytes = ip.ihl * 4U;
    if (ip.version != 4 || ip.protocol != IPPROTO_UDP || ip_bytes < sizeof(ip) || frame.size() < ip_bytes + sizeof(udp))
        return {};
    memcpy(&udp, frame.data() + ip_bytes, sizeof(udp));
    const size_t udp_bytes = ntohs(udp.len);
    if (ntohs(udp.source) != kAppliancePort || ntohs(udp.dest) != udp_port || udp_bytes < sizeof(udp) ||
        frame.size() < ip_bytes + udp_bytes)
        return {};
    *source_ip = ip.saddr;
    return frame.subspan(ip_bytes + sizeof(udp), udp_bytes - sizeof(udp));
}

uint16_t header_checksum(const iphdr &header)
{
    uint16_t words[sizeof(header) / 2];
    memcpy(words, &header, sizeof(header));
    uint32_t sum = 0;
    for (const uint16_t word : words)
        sum += word;
    sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~(sum + (sum >> 16)));
}

// Broadcasts a datagram as a frame: neither an address nor a route is needed.
bool frame_send(const Wire &wire, const Port &port, const FhostPacket &packet)
{
    struct {
        iphdr ip;
        udphdr udp;
        uint8_t payload[kFhostDatagramBytes];
    } frame = {};
    const size_t udp_bytes = sizeof(frame.udp) + packet.size, frame_bytes = sizeof(frame.ip) + udp_bytes;
    frame.ip.version = 4;
    frame.ip.ihl = sizeof(frame.ip) / 4;
    frame.ip.tot_len = htons(static_cast<uint16_t>(frame_bytes));
    frame.ip.ttl = 64;
    frame.ip.protocol = IPPROTO_UDP;
    frame.ip.saddr = port.ip;
    frame.ip.daddr = INADDR_BROADCAST;
    frame.ip.check = header_checksum(frame.ip);
    frame.udp.source = htons(wire.udp_port);
    frame.udp.dest = htons(wire.udp_port);
    frame.udp.len = htons(static_cast<uint16_t>(udp_bytes)); // no checksum, as IPv4 allows
    memcpy(frame.payload, packet.bytes, packet.size);
    sockaddr_ll all = {};
    all.sll_family = AF_PACKET;
    all.sll_protocol = htons(ETH_P_IP);
    all.sll_ifindex = port.index;
    all.sll_halen = ETH_ALEN;
    memset(all.sll_addr, 0xff, ETH_ALEN);
    const ssize_t sent =
        sendto(wire.listener.get(), &frame, frame_bytes, 0, reinterpret_cast<const sockaddr *>(&all), sizeof(all));
    return sent == static_cast<ssize_t>(frame_bytes) || complain(port.name.c_str());
}

} // namespace

int64_t now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1000} + now.tv_nsec / 1'000'000;
}

bool wire_open(const std::vector<std::string> &names, uint16_t udp_port, Wire *wire)
{
    wire->udp_port = udp_port;
    if (!ports_list(names, &wire->ports))
        return false;
    wire->listener = UniqueFd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_IP)));
    wire->hears_frames = static_cast<bool>(wire->listener);
    return wire->hears_frames || udp_listen(wire);
}

bool wire_send(const Wire &wire, const Port &port, const FhostPacket &packet)
{
    if (wire.hears_frames)
        return frame_send(wire, port, packet);
    sockaddr_in all = {};
    all.sin_family = AF_INET;
    all.sin_port = htons(wire.udp_port);
    all.sin_addr.s_addr = INADDR_BROADCAST;
    (void)setsockopt(wire.listener.get(), SOL_SOCKET, SO_BINDTODEVICE, port.name.c_str(),
                     static_cast<socklen_t>(port.name.size() + 1)); // not allowed to everybody: then the route decides
    const ssize_t sent = sendto(wire.listener.get(), packet.bytes, packet.size, 0,
                                reinterpret_cast<const sockaddr *>(&all), sizeof(all));
    (void)setsockopt(wire.listener.get(), SOL_SOCKET, SO_BINDTODEVICE, "", 1);
    return sent == static_cast<ssize_t>(packet.size) || complain(port.name.c_str());
}

bool wire_receive(const Wire &wire, int timeout_ms, Appliance *out)
{
    const int64_t end = now_ms() + timeout_ms;
    for (int64_t left = timeout_ms; left >= 0; left = end - now_ms()) {
        pollfd ready = {wire.listener.get(), POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(left)) <= 0)
            continue;
        uint8_t bytes[2048];
        sockaddr_storage from = {};
        socklen_t from_bytes = sizeof(from);
        const ssize_t got =
            recvfrom(wire.listener.get(), bytes, sizeof(bytes), 0, reinterpret_cast<sockaddr *>(&from), &from_bytes);
        if (got <= 0)
            continue;
        *out = {};
        std::span<const uint8_t> payload(bytes, static_cast<size_t>(got));
        if (wire.hears_frames) {
            sockaddr_ll link;
            memcpy(&link, &from, sizeof(link));
            const auto port = std::find_if(wire.ports.begin(), wire.ports.end(),
                                           [&](const Port &one) { return one.index == link.sll_ifindex; });
            if (port == wire.ports.end() || link.sll_pkttype == PACKET_OUTGOING)
                continue;
            payload = frame_payload(payload, wire.udp_port, &out->source_ip);
            out->interface = port->name;
        }
        if (!payload.empty() && appliance_parse(payload.data(), payload.size(), out))
            return true;
    }
    return false;
}

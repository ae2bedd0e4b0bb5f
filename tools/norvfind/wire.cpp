#include "tools/norvfind/wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/common/datagram.h"
#include "tools/common/now_ms.h"

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
    DatagramRoute route = {};
    const std::span<const uint8_t> payload = datagram_open(frame, &route);
    *source_ip = route.source_ip;
    return route.source_port == kAppliancePort && route.destination_port == udp_port ? payload
                                                                                     : std::span<const uint8_t>();
}

// Broadcasts a datagram as a frame: neither an address nor a route is needed.
bool frame_send(const Wire &wire, const Port &port, const FhostPacket &packet)
{
    uint8_t frame[kDatagramHeadBytes + kFhostDatagramBytes];
    const DatagramRoute route = {port.ip, INADDR_BROADCAST, wire.udp_port, wire.udp_port};
    const size_t frame_bytes = datagram_build(route, {packet.bytes, packet.size}, frame);
    sockaddr_ll all = {};
    all.sll_family = AF_PACKET;
    all.sll_protocol = htons(ETH_P_IP);
    all.sll_ifindex = port.index;
    all.sll_halen = ETH_ALEN;
    memset(all.sll_addr, 0xff, ETH_ALEN);
    const ssize_t sent =
        sendto(wire.listener.get(), frame, frame_bytes, 0, reinterpret_cast<const sockaddr *>(&all), sizeof(all));
    return sent == static_cast<ssize_t>(frame_bytes) || complain(port.name.c_str());
}

} // namespace

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

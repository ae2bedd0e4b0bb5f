#include "tools/norv-station/segment.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

#include "tools/common/datagram.h"
#include "tools/common/now_ms.h"

static constexpr uint16_t kSourcePort = 9999;

std::string mac_text(const Mac &mac)
{
    char text[18];
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

bool mac_parse(const char *text, Mac *mac)
{
    for (uint8_t &byte : *mac) {
        unsigned value = 0;
        if (strspn(text, "0123456789abcdefABCDEF") < 2 || sscanf(text, "%2x", &value) != 1)
            return false;
        byte = static_cast<uint8_t>(value);
        text += 2;
        if (*text == ':' && &byte != &mac->back())
            text++;
    }
    return *text == '\0';
}

static sockaddr_ll link_address(int index, const Mac &mac)
{
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = index;
    address.sll_halen = ETH_ALEN;
    std::copy(mac.begin(), mac.end(), address.sll_addr);
    return address;
}

bool port_bind(UniqueFd socket, const std::string &name, int index, StationPort *port)
{
    const sockaddr_ll address = link_address(index, {});
    if (!socket || bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        return false;
    *port = {name, static_cast<UniqueFd &&>(socket), index};
    return true;
}

bool port_open(const std::string &name, StationPort *port)
{
    const auto index = static_cast<int>(if_nametoindex(name.c_str()));
    if (index != 0 &&
        port_bind(UniqueFd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_IP))), name, index, port))
        return true;
    fprintf(stderr, "norv-station: %s: %s\n", name.c_str(), strerror(errno));
    return false;
}

bool port_send(const StationPort &port, const Mac &to, uint16_t udp_port, std::span<const uint8_t> payload)
{
    uint8_t bytes[2048];
    const DatagramRoute route = {INADDR_ANY, INADDR_BROADCAST, kSourcePort, udp_port};
    const size_t size = datagram_build(route, payload, bytes);
    const sockaddr_ll address = link_address(port.index, to);
    const ssize_t sent =
        sendto(port.socket.get(), bytes, size, 0, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    if (sent == static_cast<ssize_t>(size))
        return true;
    fprintf(stderr, "norv-station: %s: %s\n", port.name.c_str(), strerror(errno));
    return false;
}

// Takes what is there. False when it is not for us.
static bool arrival_read(std::span<const StationPort> ports, size_t index, Arrival *arrival)
{
    sockaddr_ll from = {};
    socklen_t from_bytes = sizeof(from);
    const ssize_t got = recvfrom(ports[index].socket.get(), arrival->bytes.data(), arrival->bytes.size(), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr *>(&from), &from_bytes);
    if (got <= 0 || from.sll_pkttype == PACKET_OUTGOING || from.sll_ifindex != ports[index].index)
        return false;
    DatagramRoute route;
    const std::span<const uint8_t> payload = datagram_open({arrival->bytes.data(), static_cast<size_t>(got)}, &route);
    if (payload.empty())
        return false;
    arrival->port = index;
    arrival->udp_port = route.destination_port;
    arrival->payload = {arrival->bytes.data() + (payload.data() - arrival->bytes.data()), payload.size()};
    std::copy_n(from.sll_addr, arrival->from.size(), arrival->from.begin());
    return true;
}

bool ports_receive(std::span<const StationPort> ports, int timeout_ms, Arrival *arrival)
{
    const int64_t end = now_ms() + timeout_ms;
    std::vector<pollfd> sources;
    for (const StationPort &port : ports)
        sources.push_back({port.socket.get(), POLLIN, 0});
    for (int64_t left = timeout_ms; left >= 0; left = end - now_ms()) {
        if (poll(sources.data(), sources.size(), static_cast<int>(left)) < 0)
            return false;
        for (size_t i = 0; i < sources.size(); i++)
            if (sources[i].revents != 0 && arrival_read(ports, i, arrival))
                return true;
    }
    return false;
}

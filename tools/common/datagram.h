// UDP datagrams with their IPv4 header (RFC 791, RFC 768), as a packet socket of the kind SOCK_DGRAM carries them: who
// sends and receives these needs neither an address nor a route.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct DatagramRoute {
    uint32_t source_ip, destination_ip;     // network order
    uint16_t source_port, destination_port; // host order
};
inline constexpr size_t kDatagramHeadBytes = 28;

// Writes the headers and the payload, without a UDP checksum, as IPv4 allows. `out` has room for kDatagramHeadBytes
// more than the payload. Returns the bytes written.
size_t datagram_build(const DatagramRoute &route, std::span<const uint8_t> payload, std::span<uint8_t> out);

// The payload of a whole UDP datagram, with its route. Empty when it is none.
[[nodiscard]] std::span<const uint8_t> datagram_open(std::span<const uint8_t> bytes, DatagramRoute *route);

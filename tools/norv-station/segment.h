// The factory's segment: the ports that units are heard on, and the frames that go over them.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "autocleanup/unique.h"

using Mac = std::array<uint8_t, 6>;
inline constexpr Mac kEverybody = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
[[nodiscard]] std::string mac_text(const Mac &mac); // "02:00:00:0a:0b:0c"
// Reads twelve hexadecimal digits, with or without ':' between the pairs.
[[nodiscard]] bool mac_parse(const char *text, Mac *mac);

struct StationPort {
    std::string name;
    UniqueFd socket; // AF_PACKET, SOCK_DGRAM, bound to the interface
    int index;       // of the interface
};

// Opens an interface of this machine. False, told on standard error.
[[nodiscard]] bool port_open(const std::string &name, StationPort *port);
// Makes a port of a packet socket, whatever network it is of. False with errno.
[[nodiscard]] bool port_bind(UniqueFd socket, const std::string &name, int index, StationPort *port);

// Sends a UDP datagram to a unit's address, or to kEverybody; the units' own IP addresses do not matter. False, told.
bool port_send(const StationPort &port, const Mac &to, uint16_t udp_port, std::span<const uint8_t> payload);

struct Arrival {
    size_t port; // place in the list of ports
    Mac from;
    uint16_t udp_port; // that it was sent to
    std::array<uint8_t, 2048> bytes;
    std::span<uint8_t> payload; // inside `bytes`
};

// Waits for a UDP datagram on any port. False when there is none in time, or a signal came.
[[nodiscard]] bool ports_receive(std::span<const StationPort> ports, int timeout_ms, Arrival *arrival);

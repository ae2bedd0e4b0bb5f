// The network side of the client: asks and listens on every interface of this machine, with or without an address.
#pragma once

#include <string>
#include <vector>

#include "autocleanup/unique.h"
#include "tools/norvfind/appliance.h"

struct Port {
    std::string name;
    int index;
    uint8_t mac[6];
    uint32_t ip; // network order; 0: none
};

// A way to hear and to be heard: frames where this process may use them, else a broadcast socket, which does not hear
// an appliance on a foreign subnet.
struct Wire {
    std::vector<Port> ports;
    UniqueFd listener;
    bool hears_frames = false;
    uint16_t udp_port = 9999;
};

// Opens the running Ethernet interfaces, or those named. False, told on standard error, when there is none.
[[nodiscard]] bool wire_open(const std::vector<std::string> &names, uint16_t udp_port, Wire *wire);

// Broadcasts a packet on a port. False, told on standard error.
bool wire_send(const Wire &wire, const Port &port, const FhostPacket &packet);

// Waits for the next reply of an appliance. False when the time, in milliseconds, is over.
[[nodiscard]] bool wire_receive(const Wire &wire, int timeout_ms, Appliance *out);

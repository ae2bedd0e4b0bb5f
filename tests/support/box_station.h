// A station on a wire of the box, which sends and receives whole frames.
#pragma once

#include <cstdint>
#include <string>

#include "autocleanup/unique.h"

class Sandbox;

// A UDP datagram in its frame, as RFC 768, RFC 791 and Ethernet II have it. Addresses are as they stand in the frame.
struct UdpFrame {
    std::string source_mac{};
    std::string source_ip = std::string(4, '\0');
    uint16_t source_port = 0, destination_port = 0;
    std::string payload{};

    // To the broadcast addresses, with identification 242 and time to live 64.
    [[nodiscard]] std::string bytes() const;
};

class BoxStation
{
  public:
    // Listens on an interface of the box, which is up.
    BoxStation(const Sandbox &box, const std::string &interface);

    [[nodiscard]] const std::string &mac() const { return mac_; } // six bytes
    void send(const std::string &frame) const;
    // Sends a datagram that any socket of the other end takes, whatever its address.
    void send_udp(uint16_t port, const std::string &payload) const;
    // The next frame with IPv4 in it from the other end; "" after the time.
    [[nodiscard]] std::string receive(double seconds = 10) const;

  private:
    UniqueFd socket_;
    std::string mac_;
};

// The hardware address of an interface, six bytes.
[[nodiscard]] std::string box_mac(const Sandbox &box, const std::string &interface);
// Gives an interface an IPv4 address.
void box_address_set(const Sandbox &box, const std::string &interface, const std::string &address);

#include "tests/support/box_station.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "tests/support/sandbox.h"

namespace
{

std::string big_endian(size_t value)
{
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

// RFC 1071.
std::string checksum(const std::string &bytes)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i++)
        sum += static_cast<uint32_t>(static_cast<uint8_t>(bytes[i])) << (i % 2 == 0 ? 8 : 0);
    while (sum > 0xffff)
        sum = (sum & 0xffff) + (sum >> 16);
    return big_endian(~sum & 0xffff);
}

ifreq ask(int fd, unsigned long request, const std::string &interface)
{
    ifreq answer = {};
    interface.copy(answer.ifr_name, IFNAMSIZ - 1);
    EXPECT_EQ(ioctl(fd, request, &answer), 0) << interface << ": " << strerror(errno);
    return answer;
}

} // namespace

std::string UdpFrame::bytes() const
{
    const std::string broadcast_ip(4, '\xff'), udp_protocol("\0\x11", 2);
    const std::string udp_length = big_endian(payload.size() + 8);
    const std::string ports = big_endian(source_port) + big_endian(destination_port);
    const std::string udp_sum = checksum(source_ip + broadcast_ip + udp_protocol + udp_length + ports + udp_length +
                                         std::string(2, '\0') + payload);
    const std::string ip_begin =
        std::string("\x45\0", 2) + big_endian(payload.size() + 28) + std::string("\x00\xf2\x00\x00\x40\x11", 6);
    const std::string ip_sum = checksum(ip_begin + std::string(2, '\0') + source_ip + broadcast_ip);
    return std::string(6, '\xff') + source_mac + std::string("\x08\x00", 2) + ip_begin + ip_sum + source_ip +
           broadcast_ip + ports + udp_length + udp_sum + payload;
}

BoxStation::BoxStation(const Sandbox &box, const std::string &interface)
    : socket_(box.socket(AF_PACKET, SOCK_RAW, htons(ETH_P_IP))), mac_(box_mac(box, interface))
{
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = ask(socket_.get(), SIOCGIFINDEX, interface).ifr_ifindex;
    EXPECT_EQ(bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0) << strerror(errno);
}

void BoxStation::send(const std::string &frame) const
{
    EXPECT_EQ(::send(socket_.get(), frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()))
        << strerror(errno);
}

void BoxStation::send_udp(uint16_t port, const std::string &payload) const
{
    send(UdpFrame{.source_mac = mac_, .source_port = 4321, .destination_port = port, .payload = payload}.bytes());
}

std::string BoxStation::receive(double seconds) const
{
    pollfd wait = {.fd = socket_.get(), .events = POLLIN, .revents = 0};
    if (poll(&wait, 1, static_cast<int>(seconds * 1000)) <= 0)
        return "";
    std::string frame(2048, '\0');
    const ssize_t bytes = recv(socket_.get(), frame.data(), frame.size(), 0);
    frame.resize(bytes < 0 ? 0 : static_cast<size_t>(bytes));
    return frame;
}

std::string box_mac(const Sandbox &box, const std::string &interface)
{
    const UniqueFd fd(box.socket(AF_INET, SOCK_DGRAM));
    return {ask(fd.get(), SIOCGIFHWADDR, interface).ifr_hwaddr.sa_data, 6};
}

void box_address_set(const Sandbox &box, const std::string &interface, const std::string &address)
{
    const UniqueFd fd(box.socket(AF_INET, SOCK_DGRAM));
    ifreq request = {};
    interface.copy(request.ifr_name, IFNAMSIZ - 1);
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    inet_pton(AF_INET, address.c_str(), &in.sin_addr);
    memcpy(&request.ifr_addr, &in, sizeof(in));
    EXPECT_EQ(ioctl(fd.get(), SIOCSIFADDR, &request), 0) << strerror(errno);
}

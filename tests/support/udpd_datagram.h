// One datagram of a daemon's message, written by hand.
#pragma once

#include <cstdint>
#include <string>

struct UdpdDatagram {
    uint16_t event = 72;
    std::string payload{};
    uint16_t flags = 0x8000;
    uint32_t fragment = 0;
    uint16_t id = 0x0507;
    int length = -1; // told instead of the payload's
    std::string name = "manutild";
    std::string magic = "NORVUdpd";
    uint32_t reserved = 0;

    [[nodiscard]] std::string bytes() const
    {
        const auto told = static_cast<uint32_t>(length < 0 ? static_cast<int>(payload.size()) : length);
        return magic + name + number(reserved, 4) + number(told, 2) + number(event, 2) + number(id, 2) +
               number(flags, 2) + number(fragment, 4) + payload;
    }

  private:
    static std::string number(uint32_t value, int bytes)
    {
        std::string text;
        for (; bytes > 0; bytes--, value >>= 8)
            text += static_cast<char>(value & 0xff);
        return text;
    }
};

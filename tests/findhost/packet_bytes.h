// Packets written by hand, byte by byte.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "findhost/keys.h"
#include "findhost/packet.h"

// One element with its length byte.
inline std::string element(int tag, std::string_view value)
{
    return std::string{static_cast<char>(tag), static_cast<char>(value.size())} += value;
}
// A number in so many bytes, the lowest first.
inline std::string number(int tag, uint64_t value, int width = 4)
{
    std::string bytes;
    for (int i = 0; i < width; i++)
        bytes += static_cast<char>(value >> (8 * i));
    return element(tag, bytes);
}
// What every packet of a type needs.
inline std::string base(uint32_t type)
{
    return number(0x01, type) + number(0xa4, 0x01020000);
}
inline std::string plain(std::string_view elements)
{
    return "\x12\x34\x56\x78NORV" + std::string(elements);
}
inline const uint8_t *bytes_of(const std::string &text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}
// The same bytes as the library holds a packet, and as it seals one to a key.
inline FhostPacket packet_of(std::string_view bytes)
{
    FhostPacket packet = {};
    packet.size = bytes.copy(reinterpret_cast<char *>(packet.bytes), sizeof(packet.bytes));
    return packet;
}
inline int seal_to_this_process(std::string_view bytes, FhostPacket *sealed)
{
    uint8_t key[kFhostKeyBytes];
    memcpy(key, FHOSTProcessPublicKey(), sizeof(key));
    return fhost_seal(packet_of(bytes), key, sealed);
}

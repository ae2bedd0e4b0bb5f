#include <algorithm>
#include <cstdio>
#include <cstring>

#include "findhost/packet.h"

static void element_put(FhostPacket *packet, FhostTagId tag, const void *value, size_t length)
{
    if (sizeof(packet->bytes) - packet->size < 2 + length)
        return;
    uint8_t *place = packet->bytes + packet->size;
    place[0] = tag;
    place[1] = static_cast<uint8_t>(length);
    memcpy(place + 2, value, length);
    packet->size += 2 + length;
}

void fhost_packet_begin(FhostPacket *packet)
{
    *packet = {};
    memcpy(packet->bytes, FHOST_MAGIC_PLAIN, kFhostMagicBytes);
    packet->size = kFhostMagicBytes;
}

void fhost_put_number(FhostPacket *packet, FhostTagId tag, uint64_t value)
{
    element_put(packet, tag, &value, kFhostTagRows[tag].max_bytes); // its low bytes come first on this machine
}

void fhost_put_text(FhostPacket *packet, FhostTagId tag, std::string_view text)
{
    element_put(packet, tag, text.data(), std::min<size_t>(text.size(), kFhostTagRows[tag].max_bytes));
}

void fhost_mac_format(const uint8_t (&mac)[6], char (&text)[kFhostMacTextRoom])
{
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

void fhost_put_mac(FhostPacket *packet, FhostTagId tag, const uint8_t (&mac)[6])
{
    char text[kFhostMacTextRoom];
    fhost_mac_format(mac, text);
    fhost_put_text(packet, tag, text);
}

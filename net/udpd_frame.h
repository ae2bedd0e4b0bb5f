// The header of each datagram of a message, in host order, and the putting together of a message.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "net/udpd.h"

inline constexpr char kUdpdMagic[8] = {'N', 'O', 'R', 'V', 'U', 'd', 'p', 'd'};

enum UdpdFlag : uint16_t {
    kUdpdLast = 0x8000,      // of its message
    kUdpdNoRequest = 0x4000, // daemons pass it over
};

struct UdpdFrame {
    char szMagic[8];
    char szName[8];
    int32_t nReserved; // 0
    uint16_t usLength; // of the payload behind the header
    uint16_t usEvent;
    uint16_t usId; // the same in all datagrams of a message
    uint16_t usFlags;
    uint32_t nFragment; // number of the datagram in its message, from 0
};
static_assert(sizeof(UdpdFrame) == 32 && std::has_unique_object_representations_v<UdpdFrame>);
static_assert(sizeof(UdpdFrame) + kUdpdPayloadMax == kUdpdFrameMax);
static_assert(std::endian::native == std::endian::little);

// Reads the header of a datagram that is meant for the handle and whole. Returns false for any other.
[[nodiscard]] bool udpd_frame_read(const UDPD_HANDLE &handle, const uint8_t *datagram, size_t size, UdpdFrame *frame);

// A message that arrives. Zeroed, it is empty and has no memory.
struct UdpdMessage {
    uint8_t *data;
    size_t length, room;
    uint32_t fragment; // expected next; above 0 the message has begun
    int event;         // the only one taken, or kUdpdEventAny
};

// Starts anew, with first room for a message. Returns 0; -1 with 0x7500.
[[nodiscard]] int udpd_message_start(UdpdMessage *message, int event);
void udpd_message_free(UdpdMessage *message);

enum class UdpdTake { kIgnored, kTaken, kComplete, kTooLong, kNoMemory };

// Takes a datagram when it is the one expected: its event and, with later ones, the number that the first one gave the
// handle count too. The first one sets the event.
[[nodiscard]] UdpdTake udpd_message_take(UdpdMessage *message, UDPD_HANDLE *handle, const uint8_t *datagram,
                                         size_t size);

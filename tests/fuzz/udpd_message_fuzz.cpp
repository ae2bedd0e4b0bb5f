// The putting together of messages against a plain model. Input: datagrams, each behind two bytes with its length.
// Covers: net/udpd_message.cpp
#include <algorithm>
#include <vector>

#include "net/udpd_frame.h"
#include "tests/fuzz/fuzz.h"

namespace
{

uint32_t number(const std::vector<uint8_t> &bytes, size_t at, size_t width)
{
    uint32_t value = 0;
    for (size_t i = width; i-- > 0;)
        value = value << 8 | bytes[at + i];
    return value;
}

struct Model {
    std::string message;
    uint32_t fragment = 0, id = 0, event = 0;

    // What becomes of a datagram.
    UdpdTake take(const std::vector<uint8_t> &bytes)
    {
        if (bytes.size() < 32 || memcmp(bytes.data(), "NORVUdpdmanutild\0\0\0\0", 20) != 0)
            return UdpdTake::kIgnored;
        const uint32_t length = number(bytes, 20, 2), flags = number(bytes, 26, 2);
        if (length > 1024 || 32 + length > bytes.size() || (flags & 0x4000) != 0 || number(bytes, 22, 2) >= 144 ||
            number(bytes, 28, 4) != fragment)
            return UdpdTake::kIgnored;
        if (fragment > 0 && (number(bytes, 22, 2) != event || number(bytes, 24, 2) != id))
            return UdpdTake::kIgnored;
        event = number(bytes, 22, 2);
        id = number(bytes, 24, 2);
        fragment++;
        message.append(reinterpret_cast<const char *>(bytes.data()) + 32, length);
        return (flags & 0x8000) != 0 ? UdpdTake::kComplete : UdpdTake::kTaken;
    }
};

} // namespace

void fuzz_one(std::string_view input)
{
    static UDPD_HANDLE handle;
    memcpy(handle.szWireName, "manutild", sizeof(handle.szWireName));
    UdpdMessage message = {};
    Model model;
    check(udpd_message_start(&message, kUdpdEventAny) == 0);
    while (input.size() >= 2) {
        const size_t low = byte_take(&input), high = byte_take(&input);
        const auto rest = bytes_of(input).first(std::min(low | high << 8, input.size()));
        const std::vector<uint8_t> datagram(rest.begin(), rest.end()); // a sanitizer sees a byte too many
        input.remove_prefix(rest.size());
        const UdpdTake take = udpd_message_take(&message, &handle, datagram.data(), datagram.size());
        check(take == model.take(datagram));
        check(message.length == model.message.size() && message.length <= message.room);
        check(memcmp(message.data, model.message.data(), message.length) == 0);
        check(message.event < kUdpdEventsMax && message.fragment == model.fragment);
        if (take == UdpdTake::kComplete) {
            check(handle.usId == model.id);
            model = {};
            check(udpd_message_start(&message, kUdpdEventAny) == 0);
        }
    }
    udpd_message_free(&message);
}

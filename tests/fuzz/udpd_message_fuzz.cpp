// The putting together of messages. Input: datagrams, each behind two bytes with its length.
// Covers: net/udpd_message.cpp
#include <algorithm>
#include <vector>

#include "net/udpd_frame.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    static constexpr size_t kHeaderBytes = 32, kPayloadBytes = 1024;
    static UDPD_HANDLE handle;
    memcpy(handle.szWireName, "manutild", sizeof(handle.szWireName));
    UdpdMessage message = {};
    check(udpd_message_start(&message, kUdpdEventAny) == 0);
    while (input.size() >= 2) {
        const size_t low = byte_take(&input), high = byte_take(&input);
        const auto rest = bytes_of(input).first(std::min(low | high << 8, input.size()));
        const std::vector<uint8_t> datagram(rest.begin(), rest.end()); // a sanitizer sees a byte too many
        input.remove_prefix(rest.size());
        const size_t before = message.length, fragment = message.fragment;
        const UdpdTake take = udpd_message_take(&message, &handle, datagram.data(), datagram.size());
        const size_t grown = message.length - before;
        check(message.length <= message.room && grown <= kPayloadBytes && message.event < kUdpdEventsMax);
        const bool is_taken = take == UdpdTake::kTaken || take == UdpdTake::kComplete;
        check(message.fragment == fragment + (is_taken ? 1 : 0) && (is_taken || grown == 0));
        check(grown == 0 || (datagram.size() >= kHeaderBytes + grown &&
                             memcmp(message.data + before, datagram.data() + kHeaderBytes, grown) == 0));
        if (take == UdpdTake::kComplete)
            check(udpd_message_start(&message, kUdpdEventAny) == 0);
    }
    udpd_message_free(&message);
}

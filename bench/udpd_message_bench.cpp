// Putting messages of the manufacturing daemon together, against appending the same payloads to a string.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "net/udpd_frame.h"
#include "tests/support/udpd_datagram.h"

namespace
{

std::vector<std::string> datagrams_make(int64_t count)
{
    std::vector<std::string> datagrams;
    for (int64_t i = 0; i < count; i++)
        datagrams.push_back(UdpdDatagram{.payload = std::string(1024, 'x'),
                                         .flags = static_cast<uint16_t>(i + 1 == count ? 0x8000 : 0),
                                         .fragment = static_cast<uint32_t>(i)}
                                .bytes());
    return datagrams;
}

void append(benchmark::State &state)
{
    const std::vector<std::string> datagrams = datagrams_make(state.range(0));
    for (auto _ : state) {
        std::string message;
        for (const std::string &datagram : datagrams)
            message.append(datagram, sizeof(UdpdFrame));
        benchmark::DoNotOptimize(message.data());
    }
}

void take(benchmark::State &state)
{
    const std::vector<std::string> datagrams = datagrams_make(state.range(0));
    UDPD_HANDLE handle = {};
    memcpy(handle.szWireName, "manutild", sizeof(handle.szWireName));
    UdpdMessage message = {};
    for (auto _ : state) {
        UdpdTake taken = UdpdTake::kNoMemory;
        if (udpd_message_start(&message, kUdpdEventAny) == 0)
            for (const std::string &datagram : datagrams)
                taken = udpd_message_take(&message, &handle, reinterpret_cast<const uint8_t *>(datagram.data()),
                                          datagram.size());
        if (taken != UdpdTake::kComplete)
            state.SkipWithError("no message");
        udpd_message_free(&message);
    }
}
BENCHMARK(append)->Arg(1)->Arg(64);
BENCHMARK(take)->Arg(1)->Arg(64);

} // namespace

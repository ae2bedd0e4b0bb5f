// Reading /proc/net/dev with many interfaces, against the same lines merely read.
#include <benchmark/benchmark.h>

#include <string>

#include "autocleanup/unique.h"
#include "net/net_text.h"

namespace
{

constexpr int kInterfaces = 4096;

std::string interfaces_text()
{
    std::string text = "Inter-| Receive\n face |bytes\n";
    for (int i = 0; i < kInterfaces; i++)
        text += "  eth" + std::to_string(static_cast<unsigned>(i) * 2654435761U % kInterfaces) +
                ": 123456789012 1234567 0 0 0 0 0 0 987654321098 7654321 0 0 0 0 0 0\n";
    return text;
}

void BM_LinesRead(benchmark::State &state)
{
    std::string text = interfaces_text();
    for (auto _ : state) {
        const UniqueFile file(fmemopen(text.data(), text.size(), "r"));
        char line[512];
        while (fgets(line, sizeof(line), file.get()) != nullptr)
            benchmark::DoNotOptimize(line);
    }
}
BENCHMARK(BM_LinesRead)->Unit(benchmark::kMillisecond);

void BM_InterfacesRead(benchmark::State &state)
{
    std::string text = interfaces_text();
    NET_STAT *stats = NetStatInit(kInterfaces);
    for (auto _ : state) {
        const UniqueFile file(fmemopen(text.data(), text.size(), "r"));
        benchmark::DoNotOptimize(net_stat_read(file.get(), stats, kInterfaces));
    }
    NetStatFree(stats);
}
BENCHMARK(BM_InterfacesRead)->Unit(benchmark::kMillisecond);

} // namespace

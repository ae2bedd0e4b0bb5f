// The list against std::vector<std::string>, the hash against std::unordered_map<std::string, std::string>. Both are
// given what the callers hold, C strings. Compare List with Vector and Hash with Map, the best of several repetitions.
// "heap_calls" is how often a pass asks the heap for memory.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "autocleanup/unique.h"

static long gblHeapCalls = 0;

// In front of the C library's.
extern "C" void *__libc_malloc(size_t bytes);               // NOLINT(bugprone-reserved-identifier)
extern "C" void *__libc_calloc(size_t count, size_t bytes); // NOLINT(bugprone-reserved-identifier)
extern "C" void *__libc_realloc(void *block, size_t bytes); // NOLINT(bugprone-reserved-identifier)
extern "C" void *malloc(size_t bytes) noexcept
{
    gblHeapCalls++;
    return __libc_malloc(bytes);
}
extern "C" void *calloc(size_t count, size_t bytes) noexcept
{
    gblHeapCalls++;
    return __libc_calloc(count, bytes);
}
extern "C" void *realloc(void *block, size_t bytes) noexcept
{
    gblHeapCalls++;
    return __libc_realloc(block, bytes);
}

namespace
{

// Names of devices, keys of a configuration, paths.
constexpr char kShort[] = "/dev/sd%d", kMiddle[] = "support_%d_feature",
               kLong[] = "/sys/class/scsi_host/host%d/port_state";

// `count` texts of a form, from number `first` on.
class Texts
{
  public:
    Texts(const char *form, int first, int64_t count)
    {
        for (int i = first; i < first + static_cast<int>(count); i++) {
            char text[64];
            snprintf(text, sizeof text, form, i);
            held_.emplace_back(text);
        }
        for (const std::string &text : held_)
            texts_.push_back(text.c_str());
    }
    [[nodiscard]] auto begin() const { return texts_.begin(); }
    [[nodiscard]] auto end() const { return texts_.end(); }

  private:
    std::vector<std::string> held_;
    std::vector<const char *> texts_;
};

template <const char *kForm> void BM_PushList(benchmark::State &state)
{
    const Texts items(kForm, 0, state.range(0));
    long calls = 0;
    for (auto _ : state) {
        const long before = gblHeapCalls;
        UniqueList list(NLIBCSzListAlloc(1024));
        for (const char *item : items)
            NLIBCSzListPush(list.address(), item);
        benchmark::DoNotOptimize(list.get());
        calls = gblHeapCalls - before;
    }
    state.counters["heap_calls"] = static_cast<double>(calls);
}

template <const char *kForm> void BM_PushVector(benchmark::State &state)
{
    const Texts items(kForm, 0, state.range(0));
    for (auto _ : state) {
        std::vector<std::string> list;
        for (const char *item : items)
            list.emplace_back(item); // NOLINT(performance-inefficient-vector-operation): the list has no reserve either
        benchmark::DoNotOptimize(list.data());
    }
}

UniqueHash filled_hash(const Texts &keys)
{
    UniqueHash hash(NLIBCSzHashAlloc(512));
    for (const char *key : keys)
        NLIBCSzHashSetValue(hash.address(), key, "yes");
    return hash;
}

using Map = std::unordered_map<std::string, std::string>;
Map filled_map(const Texts &keys)
{
    Map map;
    for (const char *key : keys)
        map[key] = "yes";
    return map;
}

template <const char *kForm> void BM_FillHash(benchmark::State &state)
{
    const Texts keys(kForm, 0, state.range(0));
    for (auto _ : state) {
        const UniqueHash hash = filled_hash(keys);
        benchmark::DoNotOptimize(hash.get());
    }
}

template <const char *kForm> void BM_FillMap(benchmark::State &state)
{
    const Texts keys(kForm, 0, state.range(0));
    for (auto _ : state) {
        const Map map = filled_map(keys);
        benchmark::DoNotOptimize(map.size());
    }
}

enum Lookup { kHit, kMiss };

template <const char *kForm, Lookup kLookup> void BM_GetHash(benchmark::State &state)
{
    const auto count = static_cast<int>(state.range(0));
    const UniqueHash hash = filled_hash(Texts(kForm, 0, count));
    const Texts keys(kForm, kLookup == kHit ? 0 : count, count);
    for (auto _ : state)
        for (const char *key : keys)
            benchmark::DoNotOptimize(NLIBCSzHashGetValue(hash.get(), key));
}

template <const char *kForm, Lookup kLookup> void BM_GetMap(benchmark::State &state)
{
    const auto count = static_cast<int>(state.range(0));
    const Map map = filled_map(Texts(kForm, 0, count));
    const Texts keys(kForm, kLookup == kHit ? 0 : count, count);
    for (auto _ : state) {
        for (const char *key : keys) {
            const auto found = map.find(key);
            benchmark::DoNotOptimize(found == map.end() ? nullptr : found->second.c_str());
        }
    }
}

#define SIZES(benchmark) benchmark->Arg(100)->Arg(4096)
#define FORM(form)                                                                                                     \
    SIZES(BENCHMARK(BM_PushList<form>));                                                                               \
    SIZES(BENCHMARK(BM_PushVector<form>));                                                                             \
    SIZES(BENCHMARK(BM_FillHash<form>));                                                                               \
    SIZES(BENCHMARK(BM_FillMap<form>));                                                                                \
    SIZES(BENCHMARK(BM_GetHash<form, kHit>));                                                                          \
    SIZES(BENCHMARK(BM_GetMap<form, kHit>));                                                                           \
    SIZES(BENCHMARK(BM_GetHash<form, kMiss>));                                                                         \
    SIZES(BENCHMARK(BM_GetMap<form, kMiss>))
FORM(kShort);
FORM(kMiddle);
FORM(kLong);

} // namespace

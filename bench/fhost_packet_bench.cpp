// Parsing of discovery packets by size, and opening and sealing against the bare library call. Compare Open with
// BareOpen and Seal with BareSeal.
#include <benchmark/benchmark.h>

#include <cstring>
#include <sodium.h>

#include "findhost/findhost.h"
#include "findhost/keys.h"

namespace
{

void query_make(FhostPacket *packet, int64_t elements)
{
    fhost_packet_begin(packet);
    fhost_put_number(packet, PKT_ID_PTYPE, PKT_ID_PTYPE_QUERY);
    fhost_put_number(packet, PKT_ID_STAMP, kFhostStamp);
    fhost_put_text(packet, PKT_ID_PC_MAC, "02:00:00:00:00:01");
    fhost_put_text(packet, PKT_ID_MAC, "02:00:00:00:00:02");
    fhost_put_text(packet, PKT_ID_PUBKEY, "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef");
    fhost_put_number(packet, PKT_ID_KEY_ID, 7);
    fhost_put_number(packet, PKT_ID_CAPS1, kFhostCapsMigration);
    fhost_put_number(packet, PKT_ID_CAPS2, kFhostCapsMigration);
    for (int64_t i = 8; i < elements; i++)
        if (i % 4 == 0)
            fhost_put_text(packet, PKT_ID_HOSTNAME, "a-client");
        else
            fhost_put_number(packet, PKT_ID_BUILD, static_cast<uint64_t>(i));
}

void BM_Parse(benchmark::State &state)
{
    FhostPacket packet;
    FHOST_RECORD record;
    query_make(&packet, state.range(0));
    for (auto _ : state) {
        if (FHOSTParsePacket(packet.size - kFhostMagicBytes, packet.bytes + kFhostMagicBytes, &record) != 0)
            state.SkipWithError("does not parse");
        benchmark::DoNotOptimize(record);
    }
}
BENCHMARK(BM_Parse)->Arg(12)->Arg(64);

// What both sides of a comparison work on.
struct Sealed {
    uint8_t public_key[kFhostKeyBytes], secret_key[kFhostKeyBytes];
    FhostPacket plain, sealed;

    Sealed()
    {
        if (FHOSTProcessKeyInit() != 0)
            abort();
        memcpy(public_key, FHOSTProcessPublicKey(), sizeof(public_key));
        memcpy(secret_key, FHOSTProcessSecretKeyOpen(), sizeof(secret_key));
        FHOSTProcessSecretKeyClose();
        query_make(&plain, 12);
        if (fhost_seal(plain, public_key, &sealed) != 0)
            abort();
    }
};

void BM_Seal(benchmark::State &state)
{
    Sealed keys;
    for (auto _ : state)
        benchmark::DoNotOptimize(fhost_seal(keys.plain, keys.public_key, &keys.sealed));
}
void BM_BareSeal(benchmark::State &state)
{
    Sealed keys;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            crypto_box_seal(keys.sealed.bytes, keys.plain.bytes, keys.plain.size, keys.public_key));
}
void BM_Open(benchmark::State &state)
{
    Sealed keys;
    FHOST_RECORD record;
    for (auto _ : state)
        if (fhost_open(keys.sealed.size, keys.sealed.bytes, &record) != 0 || record.ulStamp != kFhostStamp)
            state.SkipWithError("does not open");
}
void BM_BareOpen(benchmark::State &state)
{
    Sealed keys;
    uint8_t opened[kFhostDatagramBytes];
    for (auto _ : state)
        benchmark::DoNotOptimize(crypto_box_seal_open(opened, keys.sealed.bytes + kFhostMagicBytes,
                                                      keys.sealed.size - kFhostMagicBytes, keys.public_key,
                                                      keys.secret_key));
}
BENCHMARK(BM_BareSeal);
BENCHMARK(BM_Seal);
BENCHMARK(BM_BareOpen);
BENCHMARK(BM_Open);

} // namespace

// The discovery packet, plain and sealed. Input: a datagram. A plain one is parsed as it is and once more sealed to
// this process; one with the sealed magic is opened.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "findhost/keys.h"
#include "findhost/packet.h"

namespace
{

void check(bool holds)
{
    if (!holds)
        abort();
}

// What a parser must refuse, by the frame alone.
bool is_framed(std::span<const uint8_t> rest)
{
    int count = 0;
    for (; rest.size() >= 2 && rest.size() - 2 >= rest[1]; count++)
        rest = rest.subspan(2U + rest[1]);
    return rest.empty() && count <= 64;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < kFhostMagicBytes)
        return 0;
    static const int keys = FHOSTProcessKeyInit();
    check(keys == 0);
    const auto plain = std::make_unique<FHOST_RECORD>(), opened = std::make_unique<FHOST_RECORD>();
    const FHOST_RECORD zero = {};
    if (memcmp(data, FHOST_MAGIC_SEALED, kFhostMagicBytes) == 0) { // nobody can have sealed it to this key
        check(fhost_open(size, data, opened.get()) == 0 && memcmp(opened.get(), &zero, sizeof(zero)) == 0);
        return 0;
    }
    const std::span elements(data + kFhostMagicBytes, size - kFhostMagicBytes);
    const int result = FHOSTParsePacket(elements.size(), elements.data(), plain.get());
    check(result == 0 ? is_framed(elements) : memcmp(plain.get(), &zero, sizeof(zero)) == 0);
    if (size > kFhostDatagramBytes - 1 - kFhostMagicBytes - kFhostSealBytes)
        return 0;

    FhostPacket packet, sealed;
    fhost_packet_begin(&packet);
    memcpy(packet.bytes + packet.size, elements.data(), elements.size());
    packet.size += elements.size();
    uint8_t key[kFhostKeyBytes];
    memcpy(key, FHOSTProcessPublicKey(), sizeof(key));
    check(fhost_seal(packet, key, &sealed) == 0);
    check(fhost_open(sealed.size, sealed.bytes, opened.get()) == result);
    check(memcmp(opened.get(), plain.get(), sizeof(zero)) == 0);
    return 0;
}

// The discovery packet, plain and sealed. Input: a datagram. One with the sealed magic is opened; any other is parsed
// as it is and once more sealed to this process, which opens it only when it has the plain magic.
// Covers: findhost/packet_parse.cpp(width text_store value_store elements_parse has_what_type_asks FHOSTParsePacket)
// Covers: findhost/seal.cpp
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

// Without keys every packet is taken for a plain one.
int keys_make()
{
    FHOST_RECORD record;
    check(fhost_open(1, FHOST_MAGIC_PLAIN, &record) == -1);
    return FHOSTProcessKeyInit();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < kFhostMagicBytes)
        return 0;
    static const int keys = keys_make();
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

    FhostPacket packet, sealed;
    if (size > sizeof(packet.bytes))
        return 0;
    memcpy(packet.bytes, data, size);
    packet.size = size;
    uint8_t key[kFhostKeyBytes];
    memcpy(key, FHOSTProcessPublicKey(), sizeof(key));
    const bool has_room = size + kFhostMagicBytes + kFhostSealBytes < kFhostDatagramBytes;
    check(fhost_seal(packet, key, &sealed) == (has_room ? 0 : -1));
    if (!has_room)
        return 0;
    const bool is_plain = memcmp(data, FHOST_MAGIC_PLAIN, kFhostMagicBytes) == 0;
    check(fhost_open(sealed.size, sealed.bytes, opened.get()) == (is_plain ? result : -1));
    check(memcmp(opened.get(), is_plain ? plain.get() : &zero, sizeof(zero)) == 0);
    return 0;
}

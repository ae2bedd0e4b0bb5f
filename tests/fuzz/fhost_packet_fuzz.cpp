// The discovery packet, plain and sealed. Input: a datagram. One with the sealed magic is opened; any other is parsed
// as it is and once more sealed to this process, which opens it only when it has the plain magic.
// Covers: findhost/packet_parse.cpp(width text_store value_store elements_parse has_what_type_asks FHOSTParsePacket)
// Covers: findhost/seal.cpp
#include <memory>

#include "findhost/keys.h"
#include "findhost/packet.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/fuzz/fuzz.h"

namespace
{

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

void fuzz_one(std::string_view input)
{
    const uint8_t *data = bytes_of(input).data();
    const size_t size = input.size();
    if (size < kFhostMagicBytes)
        return;
    static const int keys = keys_make();
    check(keys == 0);
    const auto plain = std::make_unique<FHOST_RECORD>(), opened = std::make_unique<FHOST_RECORD>();
    const FHOST_RECORD zero = {};
    if (memcmp(data, FHOST_MAGIC_SEALED, kFhostMagicBytes) == 0) { // nobody can have sealed it to this key
        check(fhost_open(size, data, opened.get()) == 0 && memcmp(opened.get(), &zero, sizeof(zero)) == 0);
        return;
    }
    const std::span elements(data + kFhostMagicBytes, size - kFhostMagicBytes);
    const int result = FHOSTParsePacket(elements.size(), elements.data(), plain.get());
    check(result == 0 ? is_framed(elements) : memcmp(plain.get(), &zero, sizeof(zero)) == 0);

    FhostPacket sealed;
    if (size > sizeof(sealed.bytes))
        return;
    const bool has_room = size + kFhostMagicBytes + kFhostSealBytes < kFhostDatagramBytes;
    check(seal_to_this_process(input, &sealed) == (has_room ? 0 : -1));
    if (!has_room)
        return;
    const bool is_plain = memcmp(data, FHOST_MAGIC_PLAIN, kFhostMagicBytes) == 0;
    check(fhost_open(sealed.size, sealed.bytes, opened.get()) == (is_plain ? result : -1));
    check(memcmp(opened.get(), is_plain ? plain.get() : &zero, sizeof(zero)) == 0);
}

// The discovery client's reading of a reply, and the printing of what it read. Input: a datagram. A plain one is
// read as it is and once more sealed to this process.
// Covers: tools/norvfind/appliance_parse.cpp(packet_open magic_is number_of element_keep appliance_parse)
// Covers: tools/norvfind/appliance_print.cpp tools/common/text_clean.cpp(text_clean)
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "findhost/keys.h"
#include "tools/norvfind/appliance.h"

namespace
{

void check(bool holds)
{
    if (!holds)
        abort();
}

// Prints everything, and holds what came out against a terminal: nothing in it but text and ends of lines.
void print_check(const Appliance &appliance)
{
    char *text = nullptr;
    size_t length = 0;
    FILE *before = std::exchange(stdout, open_memstream(&text, &length));
    check(stdout != nullptr);
    appliances_print_table({appliance, appliance});
    appliances_print_json({appliance});
    appliance_print(appliance);
    fclose(std::exchange(stdout, before));
    check(std::all_of(text, text + length, [](char c) { return c == '\n' || (c & 0x7f) >= ' ' || c < 0; }));
    check(memchr(text, '\x7f', length) == nullptr && memchr(text, '\0', length) == nullptr);
    free(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int keys = FHOSTProcessKeyInit();
    check(keys == 0);
    Appliance plain, opened;
    const bool is_reply = appliance_parse(data, size, &plain);
    if (!is_reply)
        return 0;
    check(plain.record.ulPktType == PKT_ID_PTYPE_REPLY && !plain.is_sealed);
    print_check(plain);
    FhostPacket packet = {}, sealed;
    if (size > sizeof(packet.bytes))
        return 0;
    memcpy(packet.bytes, data, size);
    packet.size = size;
    uint8_t key[kFhostKeyBytes];
    memcpy(key, FHOSTProcessPublicKey(), sizeof(key));
    if (fhost_seal(packet, key, &sealed) != 0)
        return 0; // too long for that
    check(appliance_parse(sealed.bytes, sealed.size, &opened) && opened.is_sealed);
    check(memcmp(&opened.record, &plain.record, sizeof(plain.record)) == 0 && opened.old_model == plain.old_model);
    sealed.bytes[sealed.size - 1] ^= 1;
    check(!appliance_parse(sealed.bytes, sealed.size, &opened));
    return 0;
}

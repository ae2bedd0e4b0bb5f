// The discovery client's reading of a reply, and the printing of what it read. Input: a datagram. A plain one is
// read as it is and once more sealed to this process.
// Covers: tools/norvfind/appliance_parse.cpp(packet_open magic_is number_of element_keep appliance_parse)
// Covers: tools/norvfind/appliance_print.cpp tools/common/text_clean.cpp(text_clean)
#include <algorithm>
#include <utility>

#include "findhost/keys.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/fuzz/fuzz.h"
#include "tools/norvfind/appliance.h"

namespace
{

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

void fuzz_one(std::string_view input)
{
    static const int keys = FHOSTProcessKeyInit();
    check(keys == 0);
    Appliance plain, opened;
    const bool is_reply = appliance_parse(bytes_of(input).data(), input.size(), &plain);
    if (!is_reply)
        return;
    check(plain.record.ulPktType == PKT_ID_PTYPE_REPLY && !plain.is_sealed);
    print_check(plain);
    FhostPacket sealed;
    if (input.size() > sizeof(sealed.bytes) || seal_to_this_process(input, &sealed) != 0)
        return; // too long for that
    check(appliance_parse(sealed.bytes, sealed.size, &opened) && opened.is_sealed);
    check(memcmp(&opened.record, &plain.record, sizeof(plain.record)) == 0 && opened.old_model == plain.old_model);
    sealed.bytes[sealed.size - 1] ^= 1;
    check(!appliance_parse(sealed.bytes, sealed.size, &opened));
}

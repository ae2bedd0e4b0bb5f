// The discovery client's reading of a reply, and the printing of what it read. Input: a datagram. A plain one is
// read as it is and once more sealed to this process.
// Covers: tools/norvfind/appliance_parse.cpp(packet_open magic_is number_of element_keep appliance_parse)
// Covers: tools/norvfind/appliance_print.cpp tools/common/text_clean.cpp(text_clean) tools/common/text_json.cpp
#include <algorithm>
#include <json-c/json.h>
#include <string>
#include <utility>

#include "autocleanup/unique.h"
#include "findhost/keys.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/fuzz/fuzz.h"
#include "tools/norvfind/appliance.h"

namespace
{

template <typename Print> std::string printed(Print print)
{
    char *text = nullptr;
    size_t length = 0;
    FILE *before = std::exchange(stdout, open_memstream(&text, &length));
    check(stdout != nullptr);
    print();
    fclose(std::exchange(stdout, before));
    const UniqueText owner(text);
    return {text, length};
}

// Prints everything, and holds what came out against a terminal: nothing in it but text and ends of lines. The JSON is
// whole, and UTF-8 whatever the reply holds.
void print_check(const Appliance &appliance)
{
    const std::string json = printed([&] { appliances_print_json({appliance}); });
    const std::string text = json + printed([&] {
                                 appliances_print_table({appliance, appliance});
                                 appliance_print(appliance);
                             });
    check(std::all_of(text.begin(), text.end(), [](char c) { return c == '\n' || (c & 0x7f) >= ' ' || c < 0; }));
    check(text.find_first_of(std::string_view("\x7f\0", 2)) == text.npos);
    json_tokener *reader = json_tokener_new();
    json_tokener_set_flags(reader, JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    json_object *read = json_tokener_parse_ex(reader, json.data(), static_cast<int>(json.size()) - 1);
    check(json_tokener_get_error(reader) == json_tokener_success && json_object_array_length(read) == 1);
    json_object_put(read);
    json_tokener_free(reader);
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

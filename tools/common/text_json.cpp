#include "tools/common/text_json.h"

#include <string>

// The bytes of the UTF-8 character that a text begins with (RFC 3629); 0 when there is none.
static size_t character_bytes(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text.front());
    const size_t bytes = lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
    if (text.size() < bytes)
        return 0;
    for (size_t i = 1; i < bytes; i++)
        if ((static_cast<unsigned char>(text[i]) & 0xc0) != 0x80)
            return 0;
    return bytes;
}

json_object *text_json(std::string_view text)
{
    std::string clean;
    while (!text.empty()) {
        const size_t bytes = character_bytes(text);
        clean += bytes != 0 ? text.substr(0, bytes) : "?";
        text.remove_prefix(bytes != 0 ? bytes : 1);
    }
    return json_object_new_string_len(clean.data(), static_cast<int>(clean.size()));
}

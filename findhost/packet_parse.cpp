#include <bit>
#include <cstring>

#include "findhost/findhost.h"
#include "findhost/packet.h"

namespace
{

// What the parser has seen, as the rows of the tags say.
constexpr uint32_t kSeenBase = 1 | 2;                    // type and stamp
constexpr uint32_t kSeenNetsetting = 1 | 2 | 4 | 8 | 16; // and DHCP, host name and MAC in their required form

constexpr size_t width(FhostKind kind)
{
    return kind == FhostKind::kU64 ? 8 : 4;
}

constexpr bool tags_fit()
{
    int before = -1;
    for (const FhostTag &row : kFhostTags) {
        const bool is_text = row.kind == FhostKind::kText;
        if (row.tag <= before || (!is_text && row.max_bytes != width(row.kind)))
            return false;
        if (row.room_bytes != 0 && (is_text ? row.room_bytes < row.max_bytes : row.room_bytes != row.max_bytes))
            return false;
        before = row.tag;
    }
    return true;
}
static_assert(std::endian::native == std::endian::little); // numbers lie in the record as on the wire
static_assert(tags_fit()); // ascending; numbers as wide as their member, texts within theirs

// A NUL ends the text; an empty value leaves the field as it was.
void text_store(std::span<const uint8_t> value, char *place, size_t room)
{
    if (value.empty())
        return;
    if (*place != '\0') // else the field is clear already
        memset(place, 0, room);
    strncpy(place, reinterpret_cast<const char *>(value.data()), value.size());
}

// Stores a value in its place in the record. False when its length is not one that the row allows.
bool value_store(const FhostTag &row, std::span<const uint8_t> value, FHOST_RECORD *record)
{
    char *place = reinterpret_cast<char *>(record) + row.member;
    if (row.kind == FhostKind::kText) {
        if (value.size() > row.max_bytes)
            return false;
        text_store(value, place, row.room_bytes);
        return true;
    }
    if (value.size() != row.max_bytes)
        return false;
    memcpy(place, value.data(), width(row.kind));
    return true;
}

bool elements_parse(std::span<const uint8_t> rest, FHOST_RECORD *record, uint32_t *seen)
{
    for (int budget = kFhostElementsMax + 1; !rest.empty();) {
        FhostElement element;
        if (!fhost_element_take(&rest, &element))
            return false;
        const FhostTag &row = kFhostTagRows[element.tag];
        if (row.room_bytes != 0 && !value_store(row, element.value, record))
            return false;
        *seen |= row.seen_bit;
        if (--budget == 0) {
            FHOST_DEBUG("Maybe some virus try to hack me\n");
            return false;
        }
    }
    return true;
}

bool has_what_type_asks(uint32_t type, uint32_t seen)
{
    if (type == PKT_ID_PTYPE_OTHER2 || type == PKT_ID_PTYPE_REPLY || type == PKT_ID_PTYPE_OTHER16)
        return true;
    if ((seen & kSeenBase) != kSeenBase) {
        FHOST_DEBUG("Basic is not satifsfied\n");
        return false;
    }
    if (type == PKT_ID_PTYPE_NETSETTING && seen != kSeenNetsetting) {
        FHOST_DEBUG("not enough fields for netsetting %x\n", seen);
        return false;
    }
    return true;
}

} // namespace

int FHOSTParsePacket(size_t len, const uint8_t *elements, FHOST_RECORD *record)
{
    uint32_t seen = 0;
    *record = {};
    if (elements_parse({elements, len}, record, &seen) && has_what_type_asks(record->ulPktType, seen))
        return 0;
    *record = {};
    return -1;
}

// The discovery datagram: framing, tags, parser and writer. The daemon and its clients share all of it.
//
//   plain   FHOST_MAGIC_PLAIN, then elements to the end of the datagram
//   sealed  FHOST_MAGIC_SEALED, then crypto_box_seal over a whole plain packet, which adds 48 bytes
//
// An element is a tag byte, a length byte and that many bytes of value. Numbers are little-endian; an IPv4 address lies
// as in in_addr.s_addr; text has no terminator. findhost/tags.def lists the tags.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

inline constexpr size_t kFhostMagicBytes = 8;
inline constexpr uint8_t FHOST_MAGIC_PLAIN[kFhostMagicBytes] = {0x12, 0x34, 0x56, 0x78, 'N', 'O', 'R', 'V'};
inline constexpr uint8_t FHOST_MAGIC_SEALED[kFhostMagicBytes] = {0x12, 0x34, 0x55, 0x66, 'N', 'O', 'R', 'V'};

inline constexpr size_t kFhostDatagramBytes = 1024; // the longest in both directions
inline constexpr size_t kFhostKeyBytes = 32;        // Curve25519, public or secret
inline constexpr size_t kFhostKeyTextLength = 64;   // a public key in hexadecimal
inline constexpr size_t kFhostSealBytes = 48;       // what crypto_box_seal adds
inline constexpr int kFhostElementsMax = 64;
inline constexpr uint32_t kFhostStamp = 0x01020000;
inline constexpr uint64_t kFhostCapsMigration = 0x40; // in ullCaps1 and ullCaps2 both

enum FhostPacketType : uint32_t {
    PKT_ID_PTYPE_QUERY = 1,
    PKT_ID_PTYPE_OTHER2 = 2,
    PKT_ID_PTYPE_NETSETTING = 3,
    PKT_ID_PTYPE_QUICKCONF = 4,
    PKT_ID_PTYPE_REPLY = 6,
    PKT_ID_PTYPE_GRINST = 11,
    PKT_ID_PTYPE_OTHER16 = 16,
    PKT_ID_PTYPE_READY = 18,
};

// What PKT_ID_ERRCODE carries.
enum FhostResultCode : uint32_t {
    kFhostDone = 0,
    kFhostRefused = 5, // or failed
    kFhostLocked = 7,  // the install lock could not be made or taken
};

// A parsed packet. A text of the longest length may fill its field with no terminator: read it through text_view.
struct FHOST_RECORD {
    uint32_t ulPktType, ulDhcp, ulIP, ulMask, ulGateway, ulDns; // addresses in network order
    uint32_t ulFlag48, ulBuild, ulRsvd75, ulRsvd76, ulSmallFix, ulIfIndex, ulStamp, ulFlagA6, ulStatus, ulWebInstall;
    uint32_t ulKeyId;
    uint64_t ullCaps1, ullCaps2;
    char szHostName[32], szMac[32], szFirstMac[32], szSerial[32], szUnique[64], szSerialShort[11], szVersion[8];
    char szModel[48], szPcMac[36], szOsName[8], szPubKey[65], szBlob[1537];
};

enum FhostTagId : uint8_t {
#define FHOST_TAG(tag, name, kind, max_bytes, seen_bit, place, sent, meaning) name = tag,
#include "findhost/tags.def"
#undef FHOST_TAG
};

enum class FhostKind : uint8_t { kText, kU32, kIPv4, kU64 };

struct FhostTag {
    FhostTagId tag;
    FhostKind kind;
    uint8_t max_bytes; // text: the longest; number: the only width
    uint8_t seen_bit;
    uint16_t member, room_bytes; // in FHOST_RECORD; no room: a parser steps over it
};

#define FHOST_FIELD(name) offsetof(FHOST_RECORD, name), sizeof(FHOST_RECORD::name)
#define FHOST_SKIPPED 0, 0
#define FHOST_TAG(tag, name, kind, max_bytes, seen_bit, place, sent, meaning)                                          \
    {name, FhostKind::kind, max_bytes, seen_bit, place},
inline constexpr FhostTag kFhostTags[] = {
#include "findhost/tags.def"
};
#undef FHOST_TAG

// The row of each of the 256 tags; no bytes at all for one that is not known.
inline constexpr auto kFhostTagRows = [] {
    std::array<FhostTag, 256> rows = {};
    for (const FhostTag &row : kFhostTags)
        rows[row.tag] = row;
    return rows;
}();

// One element of a packet.
struct FhostElement {
    uint8_t tag;
    std::span<const uint8_t> value;
};

// Takes the first element off `rest`. False, `rest` as it was, when there is none or it runs past the end.
[[nodiscard]] inline bool fhost_element_take(std::span<const uint8_t> *rest, FhostElement *element)
{
    if (rest->size() < 2 || rest->size() - 2 < (*rest)[1])
        return false;
    *element = {(*rest)[0], rest->subspan(2, (*rest)[1])};
    *rest = rest->subspan(2 + element->value.size());
    return true;
}

// Parses `len` bytes of elements, the ones behind the magic, into `record`, which is zeroed first. Of several elements
// for one field the last one counts. Returns 0; -1 when an element runs past the end, is too long or not of its width,
// when there are more than kFhostElementsMax, or the packet's type asks for elements that are not there: the record is
// zero then.
[[nodiscard]] int FHOSTParsePacket(size_t len, const uint8_t *elements, FHOST_RECORD *record);

// A datagram under construction, or one that is ready to be sent.
struct FhostPacket {
    uint8_t bytes[kFhostDatagramBytes];
    size_t size; // bytes, the magic included

    [[nodiscard]] std::span<const uint8_t> view() const { return {bytes, size}; }
};

// Zeroes the packet and puts the plain magic.
void fhost_packet_begin(FhostPacket *packet);
// Appends an element in the width and byte order of its row. One that finds no room is left out.
void fhost_put_number(FhostPacket *packet, FhostTagId tag, uint64_t value);
// The same for text, cut at the longest that the row allows.
void fhost_put_text(FhostPacket *packet, FhostTagId tag, std::string_view text);
// A MAC address as text, lower-case with colons.
void fhost_put_mac(FhostPacket *packet, FhostTagId tag, const uint8_t (&mac)[6]);

// Room for a MAC address as text with its NUL.
inline constexpr size_t kFhostMacTextRoom = 18;
void fhost_mac_format(const uint8_t (&mac)[6], char (&text)[kFhostMacTextRoom]);

// Seals a plain packet to a public key (libsodium crypto_box_seal) into `sealed`, another packet. Returns 0; -1 when
// the sealed datagram would be longer than kFhostDatagramBytes - 1 or the key is none that can be sealed to.
[[nodiscard]] int fhost_seal(const FhostPacket &plain, const uint8_t (&key)[kFhostKeyBytes], FhostPacket *sealed);

// Parses a sealed datagram of `len` bytes, its magic included, with the key pair of this process. A datagram that was
// not sealed to that key gives a zero record, which no stamp test lets pass. Returns 0; -1 for what was opened and is
// no plain packet or none that parses.
[[nodiscard]] int fhost_open(size_t len, const uint8_t *datagram, FHOST_RECORD *record);

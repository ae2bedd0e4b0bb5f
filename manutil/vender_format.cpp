#include "manutil/vender_format.h"

#include <cstring>
#include <mbedtls/sha256.h>

#include "lib/little_endian.h"

static constexpr uint8_t kMagic[8] = {'N', 'O', 'R', 'V', 'V', 'E', 'N', 'D'};
static constexpr uint32_t kLayout = 1;
static constexpr size_t kDigestAt = 16, kDigestBytes = 8; // the first bytes of the SHA-256 of what follows
static constexpr size_t kContentAt = kDigestAt + kDigestBytes;

// A member of the record and where it lies.
struct VenderField {
    uint16_t at, bytes; // in the record on disk
    uint16_t member;    // byte offset in VenderRecord
    bool is_number;     // little-endian
};
#define VENDER_FIELD(at, name, is_number)                                                                              \
    {                                                                                                                  \
        at, sizeof(VenderRecord::name), offsetof(VenderRecord, name), is_number                                        \
    }
static constexpr VenderField kFields[] = {
    VENDER_FIELD(24, format_version, true),
    VENDER_FIELD(28, macs, false),
    VENDER_FIELD(156, serial, false),
    VENDER_FIELD(220, custom_serial, false),
    VENDER_FIELD(252, flags.pt_mem_cnt, true),
    VENDER_FIELD(256, flags.pt_dma_cnt, true),
    VENDER_FIELD(260, flags.ft_burnin_cnt, true),
    VENDER_FIELD(264, flags.procomm, false),
    VENDER_FIELD(280, flags.pre_burnin, false),
    VENDER_FIELD(296, flags.final_functional, false),
    VENDER_FIELD(328, flags.final_burnin, false),
};
static constexpr size_t kContentEnd = 344; // zeroes from here on

static constexpr bool fields_fill_the_record()
{
    size_t at = kContentAt;
    for (const VenderField &field : kFields) {
        if (field.at != at)
            return false;
        at += field.bytes;
    }
    return at == kContentEnd;
}
static_assert(fields_fill_the_record());
static_assert(sizeof(VenderTestFlags) == 92 && sizeof(VenderMac) == 8);

static void digest_make(const uint8_t *bytes, uint8_t (&out)[kDigestBytes])
{
    uint8_t whole[32];
    mbedtls_sha256_ret(bytes + kContentAt, kVenderBytes - kContentAt, whole, 0);
    memcpy(out, whole, sizeof(out));
}

void vender_encode(const VenderRecord &record, VenderBytes *out)
{
    out->fill(0);
    uint8_t *bytes = out->data();
    memcpy(bytes, kMagic, sizeof(kMagic));
    little_endian_store(bytes + sizeof(kMagic), sizeof(kLayout), kLayout);
    for (const VenderField &field : kFields) {
        const char *member = reinterpret_cast<const char *>(&record) + field.member;
        if (field.is_number) {
            uint32_t number;
            memcpy(&number, member, sizeof(number));
            little_endian_store(bytes + field.at, sizeof(number), number);
        } else {
            memcpy(bytes + field.at, member, field.bytes);
        }
    }
    uint8_t digest[kDigestBytes];
    digest_make(bytes, digest);
    memcpy(bytes + kDigestAt, digest, sizeof(digest));
}

bool vender_decode(std::span<const uint8_t> bytes, VenderRecord *record)
{
    if (bytes.size() != kVenderBytes || memcmp(bytes.data(), kMagic, sizeof(kMagic)) != 0 ||
        little_endian_load(bytes.data() + sizeof(kMagic), sizeof(kLayout)) != kLayout)
        return false;
    uint8_t digest[kDigestBytes];
    digest_make(bytes.data(), digest);
    if (memcmp(bytes.data() + kDigestAt, digest, sizeof(digest)) != 0)
        return false;
    for (const VenderField &field : kFields) {
        char *member = reinterpret_cast<char *>(record) + field.member;
        if (field.is_number) {
            const auto number = static_cast<uint32_t>(little_endian_load(bytes.data() + field.at, sizeof(uint32_t)));
            memcpy(member, &number, sizeof(number));
        } else {
            memcpy(member, bytes.data() + field.at, field.bytes);
        }
    }
    return true;
}

uint8_t vender_mac_check(const uint8_t *address)
{
    unsigned sum = 0;
    for (size_t i = 0; i < kVenderMacBytes; i++)
        sum += address[i];
    return static_cast<uint8_t>(~sum);
}

unsigned vender_serial_check(const char *serial, size_t length)
{
    unsigned sum = 0;
    for (size_t i = 0; i < length; i++)
        sum += static_cast<uint8_t>(serial[i]);
    return sum;
}

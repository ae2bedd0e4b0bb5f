// The factory's record. The first byte tells whether its check sum is made right, the rest is the file.
// Covers: manutil/vender_format.cpp(digest_make vender_encode vender_decode vender_serial_check)
#include <algorithm>
#include <mbedtls/sha256.h>
#include <vector>

#include "manutil/vender_format.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    static constexpr size_t kDigestAt = 16, kContentAt = 24, kContentEnd = 344;
    const bool is_summed = byte_take(&input) % 2 != 0;
    std::vector<uint8_t> bytes(input.begin(), input.end());
    if (is_summed) {
        bytes.resize(kVenderBytes);
        uint8_t digest[32];
        mbedtls_sha256_ret(bytes.data() + kContentAt, kVenderBytes - kContentAt, digest, 0);
        std::copy_n(digest, kContentAt - kDigestAt, bytes.begin() + kDigestAt);
    }
    VenderRecord record;
    memset(&record, 0xa5, sizeof(record));
    const VenderRecord before = record;
    if (!vender_decode(bytes, &record)) {
        check(memcmp(&record, &before, sizeof(record)) == 0);
        return;
    }
    // What is read is what stands there: written again, it gives the same content.
    VenderBytes again;
    vender_encode(record, &again);
    check(bytes.size() == kVenderBytes &&
          std::equal(bytes.begin() + kContentAt, bytes.begin() + kContentEnd, again.begin() + kContentAt));
    for (size_t length = 0; length <= sizeof(record.serial); length += sizeof(record.serial) / 4)
        check(vender_serial_check(record.serial, length) <= length * UINT8_MAX);
    for (const VenderMac &mac : record.macs)
        static_cast<void>(vender_mac_check(mac.address));
}

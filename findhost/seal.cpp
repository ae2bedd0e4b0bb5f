#include <cstring>
#include <sodium.h>

#include "findhost/findhost.h"
#include "findhost/keys.h"
#include "findhost/packet.h"

static_assert(crypto_box_SEALBYTES == kFhostSealBytes && crypto_box_PUBLICKEYBYTES == kFhostKeyBytes);

static constexpr size_t kOpenedBytes = 4096;

int fhost_seal(const FhostPacket &plain, const uint8_t (&key)[kFhostKeyBytes], FhostPacket *sealed)
{
    const size_t sealed_bytes = kFhostMagicBytes + plain.size + kFhostSealBytes;
    if (sealed_bytes > kFhostDatagramBytes - 1) {
        FHOST_DEBUG("Outgoing packet exceeds buffer size\n");
        return -1;
    }
    memcpy(sealed->bytes, FHOST_MAGIC_SEALED, kFhostMagicBytes);
    sealed->size = sealed_bytes;
    return crypto_box_seal(sealed->bytes + kFhostMagicBytes, plain.bytes, plain.size, key);
}

int fhost_open(size_t len, const uint8_t *datagram, FHOST_RECORD *record)
{
    if (!FHOSTProcessKeyIsSet()) {
        FHOST_DEBUG("Process key not set. Read unencrypted only.\n");
        return FHOSTParsePacket(len, datagram, record);
    }
    const uint8_t *secret_key = FHOSTProcessSecretKeyOpen();
    if (secret_key == nullptr)
        return FHOSTParsePacket(len, datagram, record);
    uint8_t opened[kOpenedBytes];
    *record = {};
    const bool is_ours = len <= sizeof(opened) && len >= kFhostMagicBytes &&
                         crypto_box_seal_open(opened, datagram + kFhostMagicBytes, len - kFhostMagicBytes,
                                              FHOSTProcessPublicKey(), secret_key) == 0;
    FHOSTProcessSecretKeyClose();
    if (!is_ours)
        return 0;
    const size_t opened_bytes = len - kFhostMagicBytes - kFhostSealBytes;
    if (opened_bytes < kFhostMagicBytes || memcmp(opened, FHOST_MAGIC_PLAIN, kFhostMagicBytes) != 0) {
        FHOST_DEBUG("Invalid findhost header\n");
        return -1;
    }
    return FHOSTParsePacket(opened_bytes - kFhostMagicBytes, opened + kFhostMagicBytes, record);
}

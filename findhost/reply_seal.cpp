#include <cstring>
#include <sodium.h>

#include "findhost/findhost.h"
#include "findhost/keys.h"

int fhost_reply_seal(const FHOST_RECORD &request, FhostPacket *packet)
{
    char key_text[kFhostCachedKeyRoom];
    if (FHOSTKeyCacheGet(request.szPcMac, request.ulKeyId, key_text) != 0)
        return 0;
    if (FHOSTProcessKeyIsSet()) {
        char own_text[kFhostKeyTextLength + 1];
        sodium_bin2hex(own_text, sizeof(own_text), FHOSTProcessPublicKey(), kFhostKeyBytes);
        fhost_put_text(packet, PKT_ID_PUBKEY, own_text);
        fhost_put_number(packet, PKT_ID_KEY_ID, FHOSTProcessKeyId());
    }
    uint8_t key[kFhostKeyBytes];
    size_t key_bytes = 0;
    // The client asked for a sealed answer: where its key is of no use it gets none, rather than an open one.
    if (sodium_hex2bin(key, sizeof(key), key_text, strlen(key_text), nullptr, &key_bytes, nullptr) != 0 ||
        key_bytes != sizeof(key))
        return -1;
    FhostPacket sealed;
    if (fhost_seal(*packet, key, &sealed) != 0)
        return -1;
    *packet = sealed;
    return 1;
}

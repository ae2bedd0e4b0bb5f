#include <cstdlib>
#include <sodium.h>

#include "findhost/keys.h"
#include "lib/report.h"

namespace
{

// Both keys or none.
struct KeyPair {
    uint8_t *public_key, *secret_key;
    uint32_t id;
} pair;

bool pair_make()
{
    if (sodium_init() < 0)
        return false;
    pair.id = randombytes_random();
    pair.public_key = static_cast<uint8_t *>(malloc(crypto_box_PUBLICKEYBYTES));
    pair.secret_key = static_cast<uint8_t *>(sodium_malloc(crypto_box_SECRETKEYBYTES));
    return pair.public_key != nullptr && pair.secret_key != nullptr &&
           sodium_mprotect_readwrite(pair.secret_key) == 0 &&
           crypto_box_keypair(pair.public_key, pair.secret_key) == 0 && sodium_mprotect_noaccess(pair.secret_key) == 0;
}

} // namespace

int FHOSTProcessKeyInit()
{
    FHOSTProcessKeyFree();
    if (pair_make())
        return 0;
    FHOSTProcessKeyFree();
    return fail(kErrSystemCall);
}

void FHOSTProcessKeyFree()
{
    if (pair.secret_key != nullptr)
        sodium_free(pair.secret_key); // wipes it
    free(pair.public_key);
    pair = {};
}

bool FHOSTProcessKeyIsSet()
{
    return pair.secret_key != nullptr;
}

uint32_t FHOSTProcessKeyId()
{
    return pair.id;
}

const uint8_t *FHOSTProcessPublicKey()
{
    return pair.public_key;
}

const uint8_t *FHOSTProcessSecretKeyOpen()
{
    if (pair.secret_key == nullptr || sodium_mprotect_readonly(pair.secret_key) != 0)
        return nullptr;
    return pair.secret_key;
}

void FHOSTProcessSecretKeyClose()
{
    if (pair.secret_key != nullptr)
        sodium_mprotect_noaccess(pair.secret_key);
}

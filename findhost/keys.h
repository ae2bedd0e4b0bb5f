// The key pair of this process and the keys of clients, for sealed packets.
#pragma once

#include <cstdint>

#include "findhost/packet.h"

// Makes the key pair and its identifier. The secret key stands in guarded memory that nobody can touch but between
// Open and Close (libsodium sodium_malloc). Returns 0; -1 without a pair.
int FHOSTProcessKeyInit();
void FHOSTProcessKeyFree();
[[nodiscard]] bool FHOSTProcessKeyIsSet();
[[nodiscard]] uint32_t FHOSTProcessKeyId();
[[nodiscard]] const uint8_t *FHOSTProcessPublicKey(); // kFhostKeyBytes; NULL when there is no pair

// Makes the secret key readable. NULL when there is none or the protection cannot be changed.
[[nodiscard]] const uint8_t *FHOSTProcessSecretKeyOpen();
void FHOSTProcessSecretKeyClose();

// Keys of clients by the client's MAC, any text, and its key identifier, at most 4096 of them. All three take
// NUL-terminated text and return 0; -1 with 0x0d00 on NULL or identifier 0, 0x2000 when there is no such entry,
// 0x0200 without memory.
//   mac          what is behind the 54th character does not count
//   hexKey       the key in hexadecimal, 64 characters
//   hexKeyOut    room for kFhostCachedKeyRoom characters: the text, up to a comma in it
inline constexpr int kFhostCachedKeyRoom = 82;
int FHOSTKeyCacheSet(const char *mac, uint32_t keyId, const char *hexKey); // makes room by age first
int FHOSTKeyCacheGet(const char *mac, uint32_t keyId, char *hexKeyOut);    // makes the entry young again
int FHOSTKeyCacheDelete(const char *mac, uint32_t keyId);
void FHOSTKeyCacheClear();

// What the units of the hash share among themselves.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/hash.h"

// An empty hash of `slots` slots with a pool of `pool_bytes`. NULL with 0x0200.
PNLIBSZHASH hash_alloc(int32_t slots, int32_t pool_bytes);

// The slot where a search for a key of `length` bytes starts: its bytes as little-endian 32-bit words, the last one
// padded with zeros, summed with wrap-around, modulo the number of slots.
uint32_t hash_home(const NLIBSZHASH *hash, const char *key, size_t length);

// Where `key` stands, or where it would be stored.
struct HashPlace {
    int slot;
    bool found;
};
HashPlace hash_search(const NLIBSZHASH *hash, const char *key, size_t length);

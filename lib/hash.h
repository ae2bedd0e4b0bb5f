// A map from string to string in one allocated block: an open-addressing table with the strings behind it.
#pragma once

#include <cstdint>

#include "lib/list.h"

struct NLIBSZHASH {
    int32_t cbPool; // bytes of the string pool
    int32_t cbFree; // bytes of it not yet taken
    int32_t nSlot;  // slots, 31 in a new hash
    int32_t nPair;  // pairs
    char *pPool;    // next free pool byte
    struct Slot {   // both NULL: empty; only the key NULL: a tombstone
        char *key, *value;
    } slots[];
};
using PNLIBSZHASH = NLIBSZHASH *;
static_assert(sizeof(NLIBSZHASH) == 24);

// A new hash of 31 slots with a string pool of `size` bytes, at least 512. NULL with 0x0200.
[[nodiscard]] PNLIBSZHASH NLIBCSzHashAlloc(int size);
void NLIBCSzHashFree(PNLIBSZHASH hash); // NULL is allowed

// The value of `key`, NULL when missing. It lives until the key is set again, or the hash grows, is cleared or
// released.
[[nodiscard]] const char *NLIBCSzHashGetValue(const NLIBSZHASH *hash, const char *key);

// Sets `key` to `value`, growing when needed: the handle may move. Arguments may point into the hash itself. Returns
// the slot index; -1 on a NULL argument (0x0d00), or where memory or a pool of 2^31-1 bytes does not suffice (0x0200),
// the hash unchanged. A key that is removed and set again may get another slot.
int NLIBCSzHashSetValue(PNLIBSZHASH *hash, const char *key, const char *value);

// Takes a pair out and returns its value, NULL when missing.
const char *NLIBCSzHashRemove(PNLIBSZHASH hash, const char *key);

// Empties the hash; block and slots stay. NULL notes 0x0d00.
void NLIBCSzHashClear(PNLIBSZHASH hash);

// Pushes all keys on `*list` in slot order; with `list` NULL only counts. Returns the number of keys; -1 with 0x0d00 on
// a bad argument, 0x0200 without memory, no key pushed.
int NLIBCSzHashEnumKey(const NLIBSZHASH *hash, PNLIBSZLIST *list);

// Number of pairs; -1 with 0x0d00 on NULL.
[[nodiscard]] int NLIBCSzHashPairNum(const NLIBSZHASH *hash);

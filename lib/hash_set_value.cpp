#include "lib/hash_parts.h"

#include <cstring>

#include "lib/report.h"

// Copies `bytes` bytes of text, the NUL among them, into the pool, which has the room. Returns the copy.
static char *hash_text_put(PNLIBSZHASH hash, const char *text, size_t bytes)
{
    char *copy = hash->pPool;
    hash->pPool += bytes;
    hash->cbFree -= static_cast<int32_t>(bytes);
    return static_cast<char *>(memcpy(copy, text, bytes));
}

// The hash in which `needed` bytes can be taken from the pool for one more pair: `hash` itself where it is large
// enough, else a grown copy of it, packed and without tombstones. NULL with 0x0200.
static PNLIBSZHASH hash_with_room(PNLIBSZHASH hash, int64_t needed)
{
    const int64_t free_slots = int64_t{hash->nSlot} - hash->nPair;
    const bool more_slots = free_slots * 4 < hash->nSlot; // under a quarter
    const bool more_pool = needed >= hash->cbFree;
    if (!more_slots && !more_pool)
        return hash;
    int64_t slots = hash->nSlot;
    int64_t pool_bytes = hash->cbPool;
    if (more_slots)
        slots = slots * 4 - 5;
    if (more_pool)
        pool_bytes += needed + free_slots * (hash->nPair == 0 ? needed : hash->cbPool / hash->nPair);
    if (slots > INT32_MAX || pool_bytes > INT32_MAX)
        return fail(kErrOutOfMemory);
    PNLIBSZHASH grown = hash_alloc(static_cast<int32_t>(slots), static_cast<int32_t>(pool_bytes));
    if (grown == nullptr)
        return nullptr;
    for (const NLIBSZHASH::Slot *old = hash->slots; old < hash->slots + hash->nSlot; old++) {
        if (old->key == nullptr)
            continue;
        char *key = grown->pPool;
        char *value = stpcpy(key, old->key) + 1;
        grown->pPool = stpcpy(value, old->value) + 1;
        uint32_t slot = hash_home(grown, old->key, static_cast<size_t>(value - key - 1));
        while (grown->slots[slot].key != nullptr) // no two keys are the same, and there are no tombstones
            slot = slot + 1 == static_cast<uint32_t>(grown->nSlot) ? 0 : slot + 1;
        grown->slots[slot] = {key, value};
    }
    grown->nPair = hash->nPair;
    grown->cbFree -= static_cast<int32_t>(grown->pPool - reinterpret_cast<char *>(grown->slots + grown->nSlot));
    return grown;
}

int NLIBCSzHashSetValue(PNLIBSZHASH *hash, const char *key, const char *value)
{
    if (hash == nullptr || *hash == nullptr || key == nullptr || value == nullptr)
        return fail(kErrBadParameter);
    PNLIBSZHASH table = *hash;
    const size_t key_length = strlen(key);
    const size_t value_bytes = strlen(value) + 1;
    HashPlace place = hash_search(table, key, key_length);
    if (place.found && value_bytes <= strlen(table->slots[place.slot].value) + 1) {
        memmove(table->slots[place.slot].value, value, value_bytes); // the new value may be a part of the old one
        return place.slot;
    }

    const size_t needed = value_bytes + (place.found ? 0 : key_length + 1);
    PNLIBSZHASH roomy = hash_with_room(table, static_cast<int64_t>(needed));
    if (roomy == nullptr)
        return -1;
    if (roomy != table)
        place = hash_search(roomy, key, key_length);
    NLIBSZHASH::Slot &slot = roomy->slots[place.slot];
    if (!place.found) {
        slot.key = hash_text_put(roomy, key, key_length + 1);
        roomy->nPair++;
    }
    slot.value = hash_text_put(roomy, value, value_bytes);
    if (roomy != table) { // not before: key and value may point into the old block
        *hash = roomy;
        NLIBCSzHashFree(table);
    }
    return place.slot;
}

#include "lib/hash_parts.h"

#include <cstring>
#include <endian.h>

// The slot where a search starts: the key's bytes as little-endian 32-bit words, the last one padded with zeros, summed
// with wrap-around, modulo the number of slots.
static uint32_t hash_home(const NLIBSZHASH *hash, const char *key, size_t length)
{
    uint32_t sum = 0;
    for (; length >= sizeof sum; key += sizeof sum, length -= sizeof sum) {
        uint32_t word;
        memcpy(&word, key, sizeof word);
        sum += le32toh(word);
    }
    for (size_t i = 0; i < length; i++)
        sum += uint32_t{static_cast<unsigned char>(key[i])} << (8 * i);
    return sum % static_cast<uint32_t>(hash->nSlot);
}

HashPlace hash_search(const NLIBSZHASH *hash, const char *key, size_t length)
{
    const auto home = static_cast<int>(hash_home(hash, key, length));
    // Tombstones never become empty again, so there may be no empty slot to end at: no probe is longer than the table.
    int tombstone = -1;
    int slot = home;
    for (int step = 0; step < hash->nSlot; step++) {
        const NLIBSZHASH::Slot &at = hash->slots[slot];
        if (at.key != nullptr) {
            if (strcmp(at.key, key) == 0)
                return {slot, true};
        } else if (at.value == nullptr) {
            return {tombstone == -1 ? slot : tombstone, false};
        } else if (tombstone == -1 && slot != home) { // one in the home slot is not reused
            tombstone = slot;
        }
        slot = slot + 1 == hash->nSlot ? 0 : slot + 1;
    }
    return {tombstone == -1 ? home : tombstone, false};
}

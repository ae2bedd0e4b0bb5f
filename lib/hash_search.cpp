#include "lib/hash_parts.h"

#include <cstring>
#include <endian.h>

uint32_t hash_home(const NLIBSZHASH *hash, const char *key, size_t length)
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

// Whether two texts of `bytes` bytes are the same. Compared from the end: keys of one kind begin alike, and their sums
// lie close together, so a probe meets many of them.
static bool same_text(const char *left, const char *right, size_t bytes)
{
    uint64_t left_word;
    uint64_t right_word;
    for (; bytes >= sizeof left_word; bytes -= sizeof left_word) {
        memcpy(&left_word, left + bytes - sizeof left_word, sizeof left_word);
        memcpy(&right_word, right + bytes - sizeof right_word, sizeof right_word);
        if (left_word != right_word)
            return false;
    }
    return memcmp(left, right, bytes) == 0;
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
            // A shorter key is followed by more text: reading `length` bytes and a NUL stays in the used pool.
            if (length < static_cast<size_t>(hash->pPool - at.key) && same_text(at.key, key, length + 1))
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

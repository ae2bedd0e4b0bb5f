#include "lib/hash_parts.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lib/report.h"

static constexpr int32_t kFirstSlots = 31;
static constexpr int32_t kSmallestPoolBytes = 512;

// No pair, and all of the pool free.
static void pool_reset(PNLIBSZHASH hash)
{
    hash->nPair = 0;
    hash->cbFree = hash->cbPool;
    hash->pPool = reinterpret_cast<char *>(hash->slots + hash->nSlot);
}

PNLIBSZHASH hash_alloc(int32_t slots, int32_t pool_bytes)
{
    const size_t table_bytes = static_cast<size_t>(slots) * sizeof(NLIBSZHASH::Slot);
    auto *const hash =
        static_cast<PNLIBSZHASH>(malloc(sizeof(NLIBSZHASH) + table_bytes + static_cast<size_t>(pool_bytes)));
    if (hash == nullptr)
        return fail(kErrOutOfMemory);
    hash->cbPool = pool_bytes;
    hash->nSlot = slots;
    memset(hash->slots, 0, table_bytes);
    pool_reset(hash);
    return hash;
}

PNLIBSZHASH NLIBCSzHashAlloc(int size)
{
    return hash_alloc(kFirstSlots, std::max(size, kSmallestPoolBytes));
}

void NLIBCSzHashFree(PNLIBSZHASH hash)
{
    free(hash);
}

void NLIBCSzHashClear(PNLIBSZHASH hash)
{
    if (hash == nullptr) {
        fail(kErrBadParameter);
        return;
    }
    for (int32_t i = 0; i < hash->nSlot; i++)
        hash->slots[i].key = nullptr; // the value stays behind as the mark of a tombstone
    pool_reset(hash);
}

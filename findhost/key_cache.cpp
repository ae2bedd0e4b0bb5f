#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "autocleanup/unique.h"
#include "findhost/key_cache_parts.h"
#include "findhost/keys.h"
#include "lib/report.h"

// On a machine that has just started, ages are short, and a limit of half its uptime takes the place of a day.
static constexpr unsigned long kYoungMachineSeconds = 2 * 24 * 3600;
static constexpr unsigned long kAgeLimitSeconds = 24 * 3600;
static constexpr unsigned long kAgeLimitLeastSeconds = 600;
static constexpr int kPoolBytes = 4096;

static PNLIBSZHASH key_cache = nullptr;

namespace
{

using EntryName = char[64];
using EntryValue = char[kFhostCachedKeyRoom];

// Returns 0; -1 with 0x0d00 for what names no entry.
int name_make(EntryName &name, const char *mac, uint32_t key_id)
{
    if (mac == nullptr || key_id == 0)
        return fail(kErrBadParameter);
    static_cast<void>(snprintf(name, sizeof(name), "%s+%08x", mac, key_id)); // cut on purpose
    return 0;
}

int entry_put(PNLIBSZHASH *cache, const char *name, const char *hex_key, unsigned long now)
{
    EntryValue value;
    static_cast<void>(snprintf(value, sizeof(value), "%s,%lx", hex_key, now)); // cut on purpose
    return NLIBCSzHashSetValue(cache, name, value) < 0 ? -1 : 0;
}

bool is_older(const char *value, unsigned long oldest)
{
    const char *comma = strrchr(value, ','); // the client's text may hold some
    return comma == nullptr || strtoul(comma + 1, nullptr, 16) < oldest;
}

int younger_count(const NLIBSZHASH *cache, unsigned long oldest)
{
    int count = 0;
    for (int i = 0; i < cache->nSlot; i++)
        count += cache->slots[i].key != nullptr && !is_older(cache->slots[i].value, oldest) ? 1 : 0;
    return count;
}

// Drops the entries that are older. The others move to a hash of their own, since what is taken out of a hash keeps
// its room there. Returns 0; -1, the cache as it was.
int older_drop(PNLIBSZHASH *cache, unsigned long oldest)
{
    UniqueHash kept(NLIBCSzHashAlloc(kPoolBytes));
    if (!kept)
        return -1;
    for (int i = 0; i < (*cache)->nSlot; i++) {
        const NLIBSZHASH::Slot &slot = (*cache)->slots[i];
        if (slot.key != nullptr && !is_older(slot.value, oldest) &&
            NLIBCSzHashSetValue(kept.address(), slot.key, slot.value) < 0)
            return -1;
    }
    NLIBCSzHashFree(*cache);
    *cache = kept.release();
    return 0;
}

// Makes room for one more entry: the oldest go, or where that does not help, all. Returns as older_drop.
int room_make(PNLIBSZHASH *cache, unsigned long now)
{
    if (NLIBCSzHashPairNum(*cache) < kFhostCachedKeysMax)
        return 0;
    const bool is_young = now < kYoungMachineSeconds;
    unsigned long limit = is_young ? now / 2 : kAgeLimitSeconds;
    int kept = kFhostCachedKeysMax;
    for (; limit > kAgeLimitLeastSeconds; limit /= 2)
        if ((kept = younger_count(*cache, now - limit)) < kFhostCachedKeysMax)
            break;
    if (kept > 0 && kept < kFhostCachedKeysMax)
        return older_drop(cache, now - limit);
    NLIBCSzHashFree(*cache); // where it were cleared, each search would go over what is left of 4096 entries
    *cache = nullptr;
    return 0;
}

unsigned long uptime_seconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long>(now.tv_sec);
}

} // namespace

int key_cache_set(PNLIBSZHASH *cache, const char *mac, uint32_t key_id, const char *hex_key, unsigned long now)
{
    EntryName name;
    if (name_make(name, mac, key_id) != 0)
        return -1;
    if (hex_key == nullptr)
        return fail(kErrBadParameter);
    if (*cache != nullptr && room_make(cache, now) != 0)
        return -1;
    if (*cache == nullptr && (*cache = NLIBCSzHashAlloc(kPoolBytes)) == nullptr)
        return -1;
    return entry_put(cache, name, hex_key, now);
}

int FHOSTKeyCacheSet(const char *mac, uint32_t keyId, const char *hexKey)
{
    return key_cache_set(&key_cache, mac, keyId, hexKey, uptime_seconds());
}

int FHOSTKeyCacheGet(const char *mac, uint32_t keyId, char *hexKeyOut)
{
    EntryName name;
    if (name_make(name, mac, keyId) != 0)
        return -1;
    const char *value = key_cache == nullptr ? nullptr : NLIBCSzHashGetValue(key_cache, name);
    const char *comma = value == nullptr ? nullptr : strchr(value, ',');
    if (comma == nullptr)
        return fail(kErrKeyMissing);
    const auto length = static_cast<size_t>(comma - value); // an entry is shorter than the room
    memcpy(hexKeyOut, value, length);
    hexKeyOut[length] = '\0';
    return entry_put(&key_cache, name, hexKeyOut, uptime_seconds());
}

int FHOSTKeyCacheDelete(const char *mac, uint32_t keyId)
{
    EntryName name;
    if (name_make(name, mac, keyId) != 0)
        return -1;
    if (key_cache == nullptr || NLIBCSzHashRemove(key_cache, name) == nullptr)
        return fail(kErrKeyMissing);
    return 0;
}

void FHOSTKeyCacheClear()
{
    NLIBCSzHashFree(key_cache);
    key_cache = nullptr;
}

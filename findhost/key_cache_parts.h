// What the cache of client keys does at a given time.
#pragma once

#include <cstdint>

#include "lib/hash.h"

inline constexpr int kFhostCachedKeysMax = 4096;

// FHOSTKeyCacheSet on the cache `*cache`, NULL for none yet, `now` seconds after the start of the machine.
int key_cache_set(PNLIBSZHASH *cache, const char *mac, uint32_t key_id, const char *hex_key, unsigned long now);

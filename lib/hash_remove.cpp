#include "lib/hash_parts.h"

#include <cstring>

#include "lib/report.h"

const char *NLIBCSzHashRemove(PNLIBSZHASH hash, const char *key)
{
    if (hash == nullptr || key == nullptr)
        return fail(kErrBadParameter);
    const HashPlace place = hash_search(hash, key, strlen(key));
    if (!place.found)
        return nullptr;
    hash->slots[place.slot].key = nullptr; // with its value it is a tombstone: later probes pass it
    hash->nPair--;
    return hash->slots[place.slot].value;
}

#include "lib/hash_parts.h"

#include <cstring>

#include "lib/report.h"

const char *NLIBCSzHashGetValue(const NLIBSZHASH *hash, const char *key)
{
    if (hash == nullptr || key == nullptr)
        return fail(kErrBadParameter);
    const HashPlace place = hash_search(hash, key, strlen(key));
    return place.found ? hash->slots[place.slot].value : nullptr;
}

int NLIBCSzHashPairNum(const NLIBSZHASH *hash)
{
    if (hash == nullptr)
        return fail(kErrBadParameter);
    return hash->nPair;
}

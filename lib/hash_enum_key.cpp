#include <cstring>

#include "lib/hash.h"
#include "lib/list_parts.h"
#include "lib/report.h"

int NLIBCSzHashEnumKey(const NLIBSZHASH *hash, PNLIBSZLIST *list)
{
    if (hash == nullptr || (list != nullptr && *list == nullptr))
        return fail(kErrBadParameter);
    if (list == nullptr)
        return hash->nPair;
    int64_t room = 0; // asked for at once: all keys or none
    for (int32_t i = 0; i < hash->nSlot; i++)
        if (hash->slots[i].key != nullptr)
            room += kListItemBytes + static_cast<int64_t>(strlen(hash->slots[i].key)) + 1;
    if (list_reserve(list, room) == -1)
        return -1;
    for (int32_t i = 0; i < hash->nSlot; i++)
        if (hash->slots[i].key != nullptr)
            NLIBCSzListPush(list, hash->slots[i].key);
    return hash->nPair;
}

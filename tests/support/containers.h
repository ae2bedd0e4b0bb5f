// The library's lists, hashes and streams as tests compare and make them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "autocleanup/unique.h"

inline std::vector<std::string> items_of(const NLIBSZLIST *list)
{
    return {list->items, list->items + list->nItem};
}

inline std::map<std::string, std::string> pairs_of(const NLIBSZHASH *hash)
{
    std::map<std::string, std::string> pairs;
    for (int i = 0; i < hash->nSlot; i++)
        if (hash->slots[i].key != nullptr)
            pairs[hash->slots[i].key] = hash->slots[i].value;
    return pairs;
}

// Reads from the text itself, which must outlive it.
inline UniqueFile stream_of(std::string_view text)
{
    return UniqueFile(fmemopen(const_cast<char *>(text.data()), text.size(), "r"));
}

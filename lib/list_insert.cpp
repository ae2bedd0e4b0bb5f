#include "lib/list_parts.h"

#include <algorithm>

#include "lib/report.h"

int NLIBCSzListInsert(PNLIBSZLIST *list, int index, const char *s)
{
    if (list == nullptr || *list == nullptr || s == nullptr || index < 0)
        return fail(kErrBadParameter);
    PNLIBSZLIST block = *list;
    if (list_is_sorted(block))
        index = list_search(block, s).index;

    const size_t bytes = strlen(s) + 1;
    const int gap = std::max(0, index - block->nItem);
    const int64_t cost = static_cast<int64_t>(bytes) + kListItemBytes * (int64_t{1} + gap);
    PNLIBSZLIST outgrown = nullptr; // lives until `s`, which may be one of its items, is copied
    if (block->cbFree < cost) {
        PNLIBSZLIST grown = list_repack(block, int64_t{2} * block->cbAlloc, cost);
        if (grown == nullptr)
            return -1;
        outgrown = block;
        *list = block = grown;
    }

    char *text = list_text_put(block, s, bytes);
    char **place = block->items + index;
    if (index < block->nItem)
        memmove(place + 1, place, static_cast<size_t>(block->nItem - index) * sizeof *place);
    std::fill(place - gap, place, block->pEmpty);
    *place = text;
    block->nItem += gap + 1;
    block->cbFree -= static_cast<int32_t>(kListItemBytes * (gap + 1));
    NLIBCSzListFree(outgrown);
    return index;
}

int NLIBCSzListPush(PNLIBSZLIST *list, const char *s)
{
    if (list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    return NLIBCSzListInsert(list, (*list)->nItem, s);
}

int NLIBCSzListUnshift(PNLIBSZLIST *list, const char *s)
{
    return NLIBCSzListInsert(list, 0, s);
}

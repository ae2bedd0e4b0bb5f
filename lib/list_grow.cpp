#include "lib/list_parts.h"

#include "lib/report.h"

PNLIBSZLIST list_repack(const NLIBSZLIST *list, int64_t size, int64_t room)
{
    int64_t needed = static_cast<int64_t>(sizeof(NLIBSZLIST)) + room;
    for (int i = 0; i < list->nItem; i++) {
        const bool placeholder = list->items[i] == list->pEmpty;
        needed += kListItemBytes + (placeholder ? 0 : static_cast<int64_t>(strlen(list->items[i])) + 1);
    }
    while (size < needed)
        size *= 2;
    if (size > INT32_MAX)
        return fail(kErrOutOfMemory);
    PNLIBSZLIST packed = NLIBCSzListAlloc(static_cast<int>(size));
    if (packed == nullptr)
        return nullptr;
    for (int i = 0; i < list->nItem; i++) {
        const char *item = list->items[i];
        packed->items[i] = item == list->pEmpty ? packed->pEmpty : list_text_put(packed, item, strlen(item) + 1);
    }
    packed->nItem = list->nItem;
    packed->cbFree -= static_cast<int32_t>(list->nItem * kListItemBytes);
    packed->sortMode = list->sortMode;
    return packed;
}

int list_reserve(PNLIBSZLIST *list, int64_t room)
{
    if (room <= (*list)->cbFree)
        return 0;
    PNLIBSZLIST grown = list_repack(*list, int64_t{2} * (*list)->cbAlloc, room);
    if (grown == nullptr)
        return -1;
    NLIBCSzListFree(*list);
    *list = grown;
    return 0;
}

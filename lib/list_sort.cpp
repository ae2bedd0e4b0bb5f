#include "lib/list_parts.h"

#include <algorithm>
#include <cstdlib>

#include "lib/report.h"

template <ListCompare kCompare> static int item_compare(const void *left, const void *right)
{
    return kCompare(*static_cast<char *const *>(left), *static_cast<char *const *>(right));
}

void NLIBCSzListSort(PNLIBSZLIST list, int mode)
{
    if (list == nullptr) {
        fail(kErrBadParameter);
        return;
    }
    if (list->sortMode == kListUnsorted) {
        if ((mode & (kListSorted | kListSortedIgnoringCase)) == 0)
            return;
        char **end = std::remove(list->items, list->items + list->nItem, list->pEmpty);
        const auto kept = static_cast<int>(end - list->items);
        list->cbFree += static_cast<int32_t>((list->nItem - kept) * kListItemBytes);
        list->nItem = kept;
        qsort(list->items, static_cast<size_t>(kept), sizeof list->items[0],
              (mode & kListSorted) != 0 ? item_compare<strcmp> : item_compare<strcasecmp>);
    }
    list->sortMode = mode;
}

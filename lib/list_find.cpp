#include "lib/list_parts.h"

#include "lib/report.h"

ListPosition list_search(const NLIBSZLIST *list, const char *s)
{
    const ListCompare compare = list_compare(list);
    int low = 0;
    for (int high = list->nItem; low < high;) {
        const int middle = low + (high - low) / 2;
        const int order = compare(list->items[middle], s);
        if (order == 0)
            return {middle, true};
        if (order < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return {low, false};
}

int NLIBCSzListFind(const NLIBSZLIST *list, const char *s)
{
    if (list == nullptr || s == nullptr || list->sortMode == kListSortedIgnoringCase)
        return fail(kErrBadParameter);
    if (list->sortMode == kListSorted) {
        const ListPosition position = list_search(list, s);
        return position.found ? position.index : -1;
    }
    for (int i = 0; i < list->nItem; i++)
        if (list->items[i] != list->pEmpty && strcmp(list->items[i], s) == 0)
            return i;
    return -1;
}

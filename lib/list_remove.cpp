#include "lib/list_parts.h"

#include "lib/report.h"

const char *NLIBCSzListRemove(PNLIBSZLIST list, int index)
{
    if (list == nullptr || index < 0 || index >= list->nItem)
        return fail(kErrBadParameter);
    char **place = list->items + index;
    const char *removed = *place;
    list->nItem--;
    memmove(place, place + 1, static_cast<size_t>(list->nItem - index) * sizeof *place);
    list->cbFree += static_cast<int32_t>(kListItemBytes); // the text stays until the strings are packed
    return removed;
}

const char *NLIBCSzListShift(PNLIBSZLIST list)
{
    return NLIBCSzListRemove(list, 0);
}

const char *NLIBCSzListPop(PNLIBSZLIST list)
{
    return NLIBCSzListRemove(list, list == nullptr ? 0 : list->nItem - 1);
}

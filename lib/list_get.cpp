#include "lib/list.h"

#include "lib/report.h"

const char *NLIBCSzListGet(const NLIBSZLIST *list, int index)
{
    if (list == nullptr || index < 0 || index >= list->nItem)
        return fail(kErrBadParameter);
    return list->items[index];
}

#include "autocleanup/unique.h"
#include "lib/list_parts.h"
#include "lib/report.h"

// Pushes both lists in one pass: all of `a`, and each string of `b` once where `a` lacks it.
static int sorted_merge(PNLIBSZLIST *result, const NLIBSZLIST *a, const NLIBSZLIST *b)
{
    const ListCompare compare = list_compare(a);
    const char *last = nullptr;
    for (int i = 0, j = 0; i < a->nItem || j < b->nItem;) {
        const bool from_a = j == b->nItem || (i < a->nItem && compare(a->items[i], b->items[j]) <= 0);
        const char *item = from_a ? a->items[i++] : b->items[j++];
        if (!from_a && last != nullptr && compare(last, item) == 0)
            continue;
        if (NLIBCSzListPush(result, item) == -1)
            return -1;
        last = item;
    }
    (*result)->sortMode = a->sortMode; // not before: a push into a sorted list would search its place
    return 0;
}

static bool list_has(const NLIBSZLIST *list, const char *s)
{
    if (list_is_sorted(list))
        return list_search(list, s).found;
    for (int i = 0; i < list->nItem; i++)
        if (strcmp(list->items[i], s) == 0)
            return true;
    return false;
}

PNLIBSZLIST NLIBCSzListOr(PNLIBSZLIST *a, const NLIBSZLIST *b, int flags)
{
    if (a == nullptr || *a == nullptr || b == nullptr)
        return fail(kErrBadParameter);
    const NLIBSZLIST *first = *a;
    if (first->sortMode != b->sortMode && first->sortMode != kListUnsorted && b->sortMode != kListUnsorted)
        return fail(kErrBadParameter);

    UniqueList result; // apart from `*a`, so that a failure leaves that as it was
    if (list_is_sorted(first) && list_is_sorted(b)) {
        result.reset(NLIBCSzListAlloc(first->cbAlloc));
        if (!result || sorted_merge(result.address(), first, b) == -1)
            return nullptr;
    } else {
        result.reset(list_repack(first, first->cbAlloc, 0));
        if (!result)
            return nullptr;
        for (int i = 0; i < b->nItem; i++)
            if (!list_has(result.get(), b->items[i]) && NLIBCSzListPush(result.address(), b->items[i]) == -1)
                return nullptr;
    }
    if ((flags & kListOrNew) != 0)
        return result.release();
    NLIBCSzListFree(*a);
    return *a = result.release();
}

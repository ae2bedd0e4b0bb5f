#include "lib/list.h"

#include <algorithm>
#include <cstdlib>

#include "lib/report.h"

static constexpr int kSmallestBytes = 512;

PNLIBSZLIST NLIBCSzListAlloc(int size)
{
    size = std::max(size, kSmallestBytes);
    auto *const list = static_cast<PNLIBSZLIST>(malloc(static_cast<size_t>(size)));
    if (list == nullptr)
        return fail(kErrOutOfMemory);
    list->cbAlloc = size;
    list->sortMode = kListUnsorted;
    list->pEmpty = reinterpret_cast<char *>(list) + size - 1;
    *list->pEmpty = '\0';
    NLIBCSzListReset(list);
    return list;
}

void NLIBCSzListFree(PNLIBSZLIST list)
{
    free(list);
}

void NLIBCSzListReset(PNLIBSZLIST list)
{
    if (list == nullptr)
        return;
    list->nItem = 0;
    list->cbFree = list->cbAlloc - static_cast<int32_t>(sizeof(NLIBSZLIST));
    list->pTail = list->pEmpty + 1;
}

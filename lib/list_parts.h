// What the units of the list share among themselves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <strings.h>

#include "lib/list.h"

inline constexpr int64_t kListItemBytes = sizeof(char *); // what every item takes of the pointer table

inline bool list_is_sorted(const NLIBSZLIST *list)
{
    return list->sortMode == kListSorted || list->sortMode == kListSortedIgnoringCase;
}

using ListCompare = int (*)(const char *, const char *);
inline ListCompare list_compare(const NLIBSZLIST *list)
{
    return list->sortMode == kListSortedIgnoringCase ? strcasecmp : strcmp;
}

// An item equal to `s` in the order of the list, or where such an item belongs.
struct ListPosition {
    int index;
    bool found;
};
ListPosition list_search(const NLIBSZLIST *list, const char *s); // the list is sorted

// Copies `bytes` bytes of text, the NUL among them, below the other strings. The list has the room. Returns the copy.
inline char *list_text_put(PNLIBSZLIST list, const char *s, size_t bytes)
{
    list->pTail -= bytes;
    list->cbFree -= static_cast<int32_t>(bytes);
    return static_cast<char *>(memcpy(list->pTail, s, bytes));
}

// A copy of `list` with its strings packed and `room` bytes free, in a block of `size` bytes, doubled as often as
// needed. NULL with 0x0200, also beyond 2^31-1 bytes.
PNLIBSZLIST list_repack(const NLIBSZLIST *list, int64_t size, int64_t room);

// Makes room for `room` bytes of items, so that inserts up to that sum cannot fail. Returns 0; -1 with 0x0200, the
// list unchanged.
int list_reserve(PNLIBSZLIST *list, int64_t room);

// A list of strings in one allocated block that holds the strings too.
#pragma once

#include <cstdint>

// The pointer table grows upward behind the header, the strings grow downward from the block's end.
struct NLIBSZLIST {
    int32_t cbAlloc;  // bytes of the whole block
    int32_t nItem;    // items
    int32_t cbFree;   // bytes between the pointer table and the strings
    int32_t sortMode; // 0 unsorted, 1 sorted by strcmp, 0x10 sorted by strcasecmp
    char *pTail;      // lowest string so far
    char *pEmpty;     // last byte of the block, a NUL: the text of every placeholder, the end of the first string
    char *items[];
};
using PNLIBSZLIST = NLIBSZLIST *;
static_assert(sizeof(NLIBSZLIST) == 32);

inline constexpr int kListUnsorted = 0;
inline constexpr int kListSorted = 1;
inline constexpr int kListSortedIgnoringCase = 0x10;
inline constexpr int kListOrNew = 0x1000; // NLIBCSzListOr: result is a list of its own

// A pointer to an item lives until the list grows, is reset or released. Growing calls may move the block: they take
// the address of the handle and update it; on failure the list is as it was. An argument may point into the list
// itself.

// A new empty list of `size` bytes, at least 512. NULL with 0x0200.
[[nodiscard]] PNLIBSZLIST NLIBCSzListAlloc(int size);
void NLIBCSzListFree(PNLIBSZLIST list); // NULL is allowed

// The item at `index`; NULL with 0x0d00 when there is none.
[[nodiscard]] const char *NLIBCSzListGet(const NLIBSZLIST *list, int index);

// Inserts a copy of `s` at `index`; a sorted list chooses the index itself. An index beyond the end fills the gap with
// empty placeholders; an empty text that is the first to be stored is one too. Returns the index used; -1 with 0x0d00
// on a bad argument, 0x0200 when memory or the size of 2^31-1 bytes does not suffice.
int NLIBCSzListInsert(PNLIBSZLIST *list, int index, const char *s);
int NLIBCSzListPush(PNLIBSZLIST *list, const char *s);    // insert at the end
int NLIBCSzListUnshift(PNLIBSZLIST *list, const char *s); // insert at 0

// Empties the list; block and sort mode stay. NULL is allowed.
void NLIBCSzListReset(PNLIBSZLIST list);

// Index of an item equal to `s`, -1 when there is none. A list sorted ignoring case is refused with 0x0d00.
[[nodiscard]] int NLIBCSzListFind(const NLIBSZLIST *list, const char *s);

// Takes an item out and returns its text; NULL with 0x0d00 when there is none.
const char *NLIBCSzListRemove(PNLIBSZLIST list, int index);
const char *NLIBCSzListShift(PNLIBSZLIST list); // the first
const char *NLIBCSzListPop(PNLIBSZLIST list);   // the last

// Sorts an unsorted list and drops its placeholders, by strcmp for mode bit 0, else by strcasecmp for bit 4; with
// neither bit nothing happens. A list that is sorted already only gets the new mode word. NULL notes 0x0d00.
void NLIBCSzListSort(PNLIBSZLIST list, int mode);

// Adds to `*a` the strings of `b` that it lacks, each once, and returns `*a`, whose block always moves; with kListOrNew
// returns a new list and leaves `*a`. Texts are the same by the order of `*a`, by strcmp where that is unsorted.
// NULL with 0x0d00 when the sort modes differ and neither is 0, with 0x0200 without memory.
PNLIBSZLIST NLIBCSzListOr(PNLIBSZLIST *a, const NLIBSZLIST *b, int flags);

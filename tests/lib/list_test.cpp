#include "lib/list.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "tests/support/outcome.h"

namespace
{

// "a,_,c": the items, a placeholder as "_".
std::string items(const NLIBSZLIST *list)
{
    std::string text;
    for (int i = 0; i < list->nItem; i++)
        text.append(i == 0 ? "" : ",").append(list->items[i] == list->pEmpty ? "_" : list->items[i]);
    return text;
}

// Every byte between the pointer table and the strings is counted, and no item lies elsewhere.
void expect_whole(const NLIBSZLIST *list)
{
    EXPECT_EQ(list->cbFree, list->pTail - reinterpret_cast<const char *>(list->items + list->nItem));
    EXPECT_EQ(list->pEmpty, reinterpret_cast<const char *>(list) + list->cbAlloc - 1);
    EXPECT_EQ(*list->pEmpty, '\0');
    for (int i = 0; i < list->nItem; i++)
        EXPECT_TRUE(list->items[i] >= list->pTail && list->items[i] <= list->pEmpty) << i;
}

UniqueList list_of(const std::vector<const char *> &texts, int mode = kListUnsorted)
{
    UniqueList list(NLIBCSzListAlloc(0));
    for (const char *text : texts)
        EXPECT_GE(NLIBCSzListPush(list.address(), text), 0);
    NLIBCSzListSort(list.get(), mode);
    return list;
}

// Runs a script of calls and returns their results. A word is "+text" push, "<text" unshift, "3@text" insert,
// "-3" remove, "-<" shift, "->" pop, "?text" find, "s1" sort with mode 1, "r" reset.
std::string run(UniqueList &list, const char *script)
{
    std::istringstream words(script);
    std::string results;
    for (std::string word; words >> word;) {
        const char *rest = word.c_str() + 1;
        if (word[0] == 's') {
            NLIBCSzListSort(list.get(), atoi(rest));
        } else if (word[0] == 'r') {
            NLIBCSzListReset(list.get());
        } else if (word[0] == '-') {
            const char *taken = *rest == '<'   ? NLIBCSzListShift(list.get())
                                : *rest == '>' ? NLIBCSzListPop(list.get())
                                               : NLIBCSzListRemove(list.get(), atoi(rest));
            results.append(taken).append(" ");
        } else {
            const int index = word[0] == '+'   ? NLIBCSzListPush(list.address(), rest)
                              : word[0] == '<' ? NLIBCSzListUnshift(list.address(), rest)
                              : word[0] == '?' ? NLIBCSzListFind(list.get(), rest)
                                               : NLIBCSzListInsert(list.address(), atoi(word.c_str()), rest + 1);
            results.append(std::to_string(index)).append(" ");
        }
    }
    return results;
}

TEST(List, Operations)
{
    struct {
        const char *script, *results, *left;
        int taken_bytes; // of 480
    } static constexpr kCases[] = {
        {"+b <a +c", "0 0 2 ", "a,b,c", 30},
        {"5@x", "5 ", "_,_,_,_,_,x", 5 * 8 + 10},
        {"+ + ?", "0 1 1 ", "_,", 18}, // a first empty text looks like a placeholder
        {"2@x ? ?x", "2 -1 2 ", "_,_,x", 26},
        {"+a +b -0 +c", "0 1 a 1 ", "b,c", 30 - 8},
        {"2@b +a s1", "2 3 ", "a,b", 20}, // sorting drops placeholders
        {"s1 +b 7@c +a +B", "0 1 0 0 ", "B,a,b,c", 40},
        {"+c +a s1 ?c ?b", "0 1 1 -1 ", "a,c", 20},
        {"+a +B s1 s16 +A", "0 1 1 ", "B,A,a", 30}, // a sorted list only takes the word
        {"+a +B s17 1@A", "0 1 1 ", "B,A,a", 30},   // bit 0 goes before bit 4; the word is no order
        {"+b s1 r +y +x", "0 0 0 ", "x,y", 20},     // reset keeps the order
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.script);
        UniqueList list(NLIBCSzListAlloc(0));
        EXPECT_EQ(run(list, row.script), row.results);
        EXPECT_EQ(items(list.get()), row.left);
        EXPECT_EQ(list.get()->cbFree, 480 - row.taken_bytes);
        expect_whole(list.get());
    }
}

TEST(List, BadArguments)
{
    UniqueList folded = list_of({"a"}, kListSortedIgnoringCase), list = list_of({"a"});
    PNLIBSZLIST none = nullptr;
    for (const Outcome &each :
         {outcome(NLIBCSzListInsert, list.address(), 0, nullptr), outcome(NLIBCSzListInsert, list.address(), -1, "a"),
          outcome(NLIBCSzListPush, &none, "a"), outcome(NLIBCSzListFind, folded.get(), "a"), // always refused
          outcome(NLIBCSzListGet, list.get(), 1), outcome(NLIBCSzListGet, list.get(), -1),
          outcome(NLIBCSzListShift, list_of({}).get()), outcome(NLIBCSzListPop, list_of({}).get()),
          outcome(NLIBCSzListPop, none), outcome(NLIBCSzListOr, list.address(), none, 0)})
        EXPECT_EQ(each, (Outcome{-1, kErrBadParameter}));
    for (const int index : {1 << 27, INT_MAX}) // what no block can hold
        EXPECT_EQ(outcome(NLIBCSzListInsert, list.address(), index, "b"), (Outcome{-1, kErrOutOfMemory}));
    EXPECT_EQ(items(list.get()), "a");
    EXPECT_EQ(list.get()->cbFree, 470);
}

TEST(List, GrowsByDoublingOnly)
{
    // One text of each length beside {"ab", placeholder}: the block is doubled until 32 + 11 + 8 + length + 9 fit.
    for (int length = 0; length < 5000; length += length < 460 || length > 470 ? 137 : 1) {
        UniqueList list(NLIBCSzListAlloc(0));
        NLIBCSzListPush(list.address(), "removed");
        NLIBCSzListPush(list.address(), "ab");
        NLIBCSzListInsert(list.address(), 3, "c");
        NLIBCSzListShift(list.get());
        NLIBCSzListPop(list.get());
        list.get()->sortMode = 2;                            // no order, but kept
        const int used = 32 + (2 + 1 + 8) + 8, lost = 8 + 2; // the removed texts stay until the block grows
        int bytes = 512, spare = bytes - used - lost;
        while (spare < length + 9)
            spare = (bytes *= 2) - used;
        ASSERT_EQ(NLIBCSzListPush(list.address(), std::string(static_cast<size_t>(length), 'x').c_str()), 2);
        ASSERT_EQ(list.get()->cbAlloc, bytes) << length;
        ASSERT_EQ(list.get()->cbFree, spare - length - 9) << length;
        ASSERT_EQ(items(list.get()).substr(0, 5), "ab,_,");
        ASSERT_EQ(list.get()->sortMode, 2);
        expect_whole(list.get());
    }
}

TEST(List, Or)
{
    constexpr int kNone = kListUnsorted, kCase = kListSorted, kFold = kListSortedIgnoringCase;
    struct {
        std::vector<const char *> a;
        int a_mode;
        std::vector<const char *> b;
        int b_mode;
        const char *result; // NULL: refused
    } const kCases[] = {
        {{"c", "a"}, kNone, {"b", "a", "b"}, kNone, "c,a,b"},
        {{"c", "a"}, kNone, {"b", "A"}, kFold, "c,a,A,b"},
        {{"c", "a"}, kCase, {"d", "b", "a", "b"}, kNone, "a,b,c,d"},
        {{"c", "a", "c"}, kCase, {"d", "b", "b", "a", "c", "d"}, kCase, "a,b,c,c,d"},
        {{"B", "a"}, kFold, {"A", "b", "C", "c"}, kFold, "a,B,C"},
        {{"a"}, kCase, {"b"}, kFold, nullptr},
    };
    for (const auto &row : kCases) {
        for (const int flags : {0, kListOrNew}) {
            UniqueList a = list_of(row.a, row.a_mode), b = list_of(row.b, row.b_mode);
            const std::string a_before = items(a.get()), b_before = items(b.get());
            SCOPED_TRACE(testing::Message() << a_before << " + " << b_before << ", flags " << flags);
            PNLIBSZLIST result = NLIBCSzListOr(a.address(), b.get(), flags);
            ASSERT_EQ(result != nullptr, row.result != nullptr);
            EXPECT_EQ(items(b.get()), b_before);
            EXPECT_EQ(result == a.get(), result != nullptr && flags == 0); // one list, one owner
            const UniqueList own(result == a.get() ? nullptr : result);
            if (result == nullptr || flags == kListOrNew) {
                EXPECT_EQ(items(a.get()), a_before);
            }
            if (result != nullptr) {
                EXPECT_EQ(items(result), row.result);
                EXPECT_EQ(result->sortMode, row.a_mode);
                expect_whole(result);
            }
        }
    }
    UniqueList list = list_of({"b", "a"}, kCase);
    const NLIBSZLIST *with_itself = NLIBCSzListOr(list.address(), list.get(), 0);
    EXPECT_EQ(with_itself, list.get());
    EXPECT_EQ(items(list.get()), "a,b");
}

} // namespace

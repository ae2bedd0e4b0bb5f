#include "lib/list.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "tests/support/alloc_fault.h"
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

TEST(List, LayoutInTheBlock)
{
    for (const auto &[asked, given] : {std::pair(INT_MIN, 512), {511, 512}, {512, 512}, {1024, 1024}})
        EXPECT_EQ(UniqueList(NLIBCSzListAlloc(asked)).get()->cbAlloc, given);
    UniqueList list(NLIBCSzListAlloc(600));
    NLIBCSzListPush(list.address(), "abc");
    NLIBCSzListInsert(list.address(), 3, "de");
    NLIBCSzListUnshift(list.address(), "");
    list.get()->sortMode = 0x10;
    const auto *block = reinterpret_cast<const char *>(list.get());
    EXPECT_EQ(memcmp(block + 600 - 8, "\0de\0abc\0", 8), 0);
    const auto number = [block](int at) { // 32-bit at byte `at` of the block
        int32_t value;
        memcpy(&value, block + at, sizeof value);
        return value;
    };
    const auto offset = [block](int at) { // where the pointer at byte `at` of the block leads
        const char *value;
        memcpy(&value, block + at, sizeof value);
        return value - block;
    };
    EXPECT_EQ(number(0), 600);
    EXPECT_EQ(number(4), 5);
    EXPECT_EQ(number(8), 600 - 32 - (4 + 8) - (2 * 8 + 3 + 8) - (1 + 8));
    EXPECT_EQ(number(12), 0x10);
    EXPECT_EQ(offset(16), 592);
    EXPECT_EQ(offset(24), 599);
    static constexpr int kItems[] = {592, 596, 599, 599, 593};
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(offset(32 + 8 * i), kItems[i]) << i;
    expect_whole(list.get());
}

// Runs a script of calls and returns their results. A word is "+text" push, "<text" unshift, "3@text" insert,
// "-3" remove, "-<" shift, "->" pop, "?text" find, "s1" sort with mode 1, "r" reset.
std::string run(UniqueList &list, const char *script)
{
    std::istringstream words(script);
    std::string results;
    for (std::string word; words >> word;) {
        NLIBCErrSet(kErrNone, "", 0);
        const char *rest = word.c_str() + 1;
        const char *taken = nullptr;
        int index = 0;
        switch (word[0]) {
        case '+':
            index = NLIBCSzListPush(list.address(), rest);
            break;
        case '<':
            index = NLIBCSzListUnshift(list.address(), rest);
            break;
        case '?':
            index = NLIBCSzListFind(list.get(), rest);
            EXPECT_EQ(NLIBCErrGet(), kErrNone); // not found is no failure
            break;
        case 's':
            NLIBCSzListSort(list.get(), atoi(rest));
            continue;
        case 'r':
            NLIBCSzListReset(list.get());
            continue;
        case '-':
            taken = *rest == '<'   ? NLIBCSzListShift(list.get())
                    : *rest == '>' ? NLIBCSzListPop(list.get())
                                   : NLIBCSzListRemove(list.get(), atoi(rest));
            EXPECT_EQ(NLIBCErrGet(), taken == nullptr ? kErrBadParameter : kErrNone) << word;
            results.append(taken == nullptr ? "NULL" : taken).append(" ");
            continue;
        default:
            index = NLIBCSzListInsert(list.address(), atoi(word.c_str()), strchr(rest, '@') + 1);
        }
        results.append(std::to_string(index)).append(" ");
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
        {"+a +c 1@b", "0 1 1 ", "a,b,c", 30},
        {"5@x", "5 ", "_,_,_,_,_,x", 5 * 8 + 10},
        {"+a 3@b", "0 3 ", "a,_,_,b", 10 + 2 * 8 + 10},
        {"2@x 1@y", "2 1 ", "_,y,_,x", 26 + 10},
        {"+ + ?", "0 1 1 ", "_,", 18}, // a first empty text looks like a placeholder
        {"2@x ? ?x", "2 -1 2 ", "_,_,x", 26},
        {"+a +a ?a ?A", "0 1 0 -1 ", "a,a", 20},
        {"+a +bcd -1", "0 1 bcd ", "a", 10 + 4}, // the text's bytes stay
        {"+a +b -0 +c", "0 1 a 1 ", "b,c", 30 - 8},
        {"+a -1 --1", "0 NULL NULL ", "a", 10},
        {"-< -> -0", "NULL NULL NULL ", "", 0},
        {"+a +b +c -< ->", "0 1 2 a c ", "b", 30 - 16},
        {"2@b +a s1", "2 3 ", "a,b", 20}, // sorting drops placeholders
        {"s1 +b 7@c +a +B", "0 1 0 0 ", "B,a,b,c", 40},
        {"+c +a s1 ?c ?b", "0 1 1 -1 ", "a,c", 20},
        {"+b +A s16 +C +aa", "0 1 2 1 ", "A,aa,b,C", 41},
        {"s1 +a +a", "0 0 ", "a,a", 20},
        {"+a +B s1 s16 +A", "0 1 1 ", "B,A,a", 30}, // a sorted list only takes the word
        {"+b s1 s0 +a", "0 1 ", "b,a", 20},
        {"+a +B s17 1@A", "0 1 1 ", "B,A,a", 30}, // bit 0 goes before bit 4; the word is no order
        {"+b +a s2", "0 1 ", "b,a", 20},
        {"+b s1 r +y +x", "0 0 0 ", "x,y", 20}, // reset keeps the order
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
    const bool failed[] = {
        // clang-format off
        NLIBCSzListInsert(nullptr, 0, "a") == -1,         NLIBCSzListInsert(&none, 0, "a") == -1,
        NLIBCSzListInsert(list.address(), 0, nullptr) == -1, NLIBCSzListInsert(list.address(), -1, "a") == -1,
        NLIBCSzListPush(nullptr, "a") == -1,              NLIBCSzListPush(&none, "a") == -1,
        NLIBCSzListUnshift(&none, "a") == -1,             NLIBCSzListFind(nullptr, "a") == -1,
        NLIBCSzListFind(list.get(), nullptr) == -1,       NLIBCSzListFind(folded.get(), "a") == -1, // always refused
        NLIBCSzListGet(nullptr, 0) == nullptr,            NLIBCSzListGet(list.get(), 1) == nullptr,
        NLIBCSzListGet(list.get(), -1) == nullptr,        NLIBCSzListPop(nullptr) == nullptr,
        NLIBCSzListOr(nullptr, list.get(), 0) == nullptr, NLIBCSzListOr(&none, list.get(), 0) == nullptr,
        NLIBCSzListOr(list.address(), nullptr, 0) == nullptr,
        // clang-format on
    };
    for (size_t i = 0; i < std::size(failed); i++)
        EXPECT_TRUE(failed[i]) << i;
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
    EXPECT_EQ(items(list.get()), "a");
    NLIBCSzListFree(nullptr);
    NLIBCSzListReset(nullptr);
    NLIBCSzListSort(nullptr, 1);
}

TEST(List, GrowsByDoublingOnly)
{
    // One text of each length beside {"ab", placeholder}: the block is doubled until 32 + 11 + 8 + length + 9 fit.
    for (int length = 0; length < 5000; length += length < 440 || length > 470 ? 37 : 1) {
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

TEST(List, RefusesWhatNoBlockCanHold)
{
    UniqueList list = list_of({"a"});
    const NLIBSZLIST *before = list.get();
    for (const int index : {1 << 27, 1 << 28, INT_MAX - 1, INT_MAX}) {
        EXPECT_EQ(outcome(NLIBCSzListInsert, list.address(), index, "b"), (Outcome{-1, kErrOutOfMemory}));
        EXPECT_EQ(list.get(), before);
        EXPECT_EQ(items(list.get()), "a");
        EXPECT_EQ(list.get()->cbFree, 470);
    }
}

TEST(List, HundredPushesTakeThreeBlocks)
{
    AllocFault heap(0);
    UniqueList list(NLIBCSzListAlloc(0));
    for (int i = 0; i < 100; i++)
        NLIBCSzListPush(list.address(), "/dev/sda3");
    EXPECT_EQ(list.get()->nItem, 100);
    EXPECT_LE(heap.allocations(), 3);
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
        {{}, kNone, {"b", "a", "b"}, kNone, "b,a"},
        {{"a", "a"}, kNone, {}, kNone, "a,a"},
        {{"c", "a"}, kCase, {"d", "b", "a", "b"}, kNone, "a,b,c,d"},
        {{"c", "a", "c"}, kCase, {"d", "b", "b", "a", "c", "d"}, kCase, "a,b,c,c,d"},
        {{}, kCase, {"b", "a"}, kCase, "a,b"},
        {{"b"}, kCase, {}, kCase, "b"},
        {{"B", "a"}, kFold, {"A", "b", "C", "c"}, kFold, "a,B,C"},
        {{"B", "a"}, kFold, {"A", "C", "c"}, kNone, "a,B,C"},
        {{"a"}, kCase, {"b"}, kFold, nullptr},
        {{"a"}, kFold, {"b"}, kCase, nullptr},
    };
    for (const auto &row : kCases) {
        for (const int flags : {0, kListOrNew}) {
            UniqueList a = list_of(row.a, row.a_mode), b = list_of(row.b, row.b_mode);
            const std::string a_before = items(a.get()), b_before = items(b.get());
            SCOPED_TRACE(testing::Message() << a_before << " + " << b_before << ", flags " << flags);
            const NLIBSZLIST *a_block = a.get();
            UniqueList result(NLIBCSzListOr(a.address(), b.get(), flags));
            EXPECT_EQ(items(b.get()), b_before);
            if (row.result == nullptr) {
                EXPECT_EQ(result.get(), nullptr);
                EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
                EXPECT_EQ(a.get(), a_block);
                continue;
            }
            ASSERT_TRUE(result);
            EXPECT_EQ(items(result.get()), row.result);
            EXPECT_EQ(result.get()->sortMode, row.a_mode);
            expect_whole(result.get());
            if (flags == kListOrNew) {
                EXPECT_EQ(a.get(), a_block);
                EXPECT_EQ(items(a.get()), a_before);
            } else {
                EXPECT_EQ(result.release(), a.get()); // one list, one owner
            }
        }
    }
    UniqueList list = list_of({"b", "a"}, kCase);
    const NLIBSZLIST *with_itself = NLIBCSzListOr(list.address(), list.get(), 0);
    EXPECT_EQ(with_itself, list.get());
    EXPECT_EQ(items(list.get()), "a,b");
}

} // namespace

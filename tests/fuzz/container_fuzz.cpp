// A list and a hash against models of the standard library. Input: calls, one after another: a byte that chooses the
// call, a byte for an index, then a text up to and with a NUL.
// Covers: lib/list_insert.cpp(NLIBCSzListInsert NLIBCSzListPush) lib/list_remove.cpp(NLIBCSzListRemove)
// Covers: lib/list_sort.cpp lib/list_grow.cpp(list_repack) lib/list_find.cpp lib/hash_set_value.cpp
// Covers: lib/hash_search.cpp lib/hash_remove.cpp lib/hash_get_value.cpp(NLIBCSzHashGetValue)
#include <algorithm>
#include <map>
#include <strings.h>
#include <vector>

#include "autocleanup/unique.h"
#include "tests/fuzz/fuzz.h"

namespace
{

bool is_sorted(int mode)
{
    return mode == kListSorted || mode == kListSortedIgnoringCase;
}

// The items as texts, a placeholder as an empty one: which of the two an empty item is shows in the block alone.
struct ListModel {
    std::vector<std::string> items;
    int mode = kListUnsorted;

    void insert(int at, const std::string &text)
    {
        const auto index = static_cast<size_t>(at);
        items.resize(std::max(items.size(), index));
        items.insert(items.begin() + at, text);
    }
};

void check_list(const NLIBSZLIST *list, const ListModel &model)
{
    check(list->nItem == static_cast<int>(model.items.size()) && list->sortMode == model.mode);
    check(list->cbFree == list->pTail - reinterpret_cast<const char *>(list->items + list->nItem) && list->cbFree >= 0);
    check(list->pEmpty == reinterpret_cast<const char *>(list) + list->cbAlloc - 1 && *list->pEmpty == '\0');
    for (int i = 0; i < list->nItem; i++) {
        check(list->items[i] >= list->pTail && list->items[i] <= list->pEmpty);
        check(list->items[i] == model.items[static_cast<size_t>(i)]);
    }
}

void list_call(UniqueList &list, ListModel &model, uint8_t call, int index, const std::string &text)
{
    const int count = list.get()->nItem;
    switch (call % 6) {
    case 0: { // insert
        const int at = NLIBCSzListInsert(list.address(), index, text.c_str());
        if (is_sorted(model.mode)) {
            const auto compare = model.mode == kListSorted ? strcmp : strcasecmp;
            check(at >= 0 && at <= count);
            check(at == 0 || compare(model.items[static_cast<size_t>(at) - 1].c_str(), text.c_str()) <= 0);
            check(at == count || compare(text.c_str(), model.items[static_cast<size_t>(at)].c_str()) <= 0);
        } else {
            check(at == index);
        }
        model.insert(at, text);
        break;
    }
    case 1: // an item of its own
        if (count > 0 && !is_sorted(model.mode)) {
            check(NLIBCSzListPush(list.address(), list.get()->items[index % count]) == count);
            model.insert(count, model.items[static_cast<size_t>(index % count)]);
        }
        break;
    case 2: { // remove
        const char *removed = NLIBCSzListRemove(list.get(), index);
        check((removed != nullptr) == (index < count));
        if (removed != nullptr) {
            check(removed == model.items[static_cast<size_t>(index)]);
            model.items.erase(model.items.begin() + index);
        }
        break;
    }
    case 3: { // find
        const int at = NLIBCSzListFind(list.get(), text.c_str());
        const auto found = std::find(model.items.begin(), model.items.end(), text);
        if (at >= 0)
            check(model.items[static_cast<size_t>(at)] == text);
        else if (!text.empty()) // an empty item may be a placeholder
            check(model.mode == kListSortedIgnoringCase || found == model.items.end());
        break;
    }
    case 4: { // sort once, mostly late
        if (index < 250 || model.mode != kListUnsorted)
            break;
        NLIBCSzListSort(list.get(), index % 2 == 0 ? kListSorted : kListSortedIgnoringCase);
        const auto compare = index % 2 == 0 ? strcmp : strcasecmp;
        std::vector<std::string> sorted(list.get()->items, list.get()->items + list.get()->nItem);
        for (size_t i = 1; i < sorted.size(); i++)
            check(compare(sorted[i - 1].c_str(), sorted[i].c_str()) <= 0);
        std::vector<std::string> left = sorted, right = model.items;
        std::erase(left, "");
        std::erase(right, "");
        std::sort(left.begin(), left.end());
        std::sort(right.begin(), right.end());
        check(left == right); // all but placeholders
        model = {sorted, list.get()->sortMode};
        break;
    }
    default:
        if (index > 250) {
            NLIBCSzListReset(list.get());
            model.items.clear();
        }
    }
    check_list(list.get(), model);
}

using HashModel = std::map<std::string, std::string>;

void check_hash(const NLIBSZHASH *hash, const HashModel &model)
{
    const char *pool = reinterpret_cast<const char *>(hash->slots + hash->nSlot);
    check(hash->nPair == static_cast<int>(model.size()) && hash->nPair < hash->nSlot);
    check(hash->cbFree == pool + hash->cbPool - hash->pPool && hash->cbFree >= 0);
    for (const auto &[key, value] : model) {
        const char *found = NLIBCSzHashGetValue(hash, key.c_str());
        check(found != nullptr && found == value);
    }
}

void hash_call(UniqueHash &hash, HashModel &model, uint8_t call, int index, const std::string &text)
{
    const std::string key = text.substr(0, static_cast<size_t>(index) % 8);
    switch (call % 4) {
    case 0:
    case 1: { // set
        const int slot = NLIBCSzHashSetValue(hash.address(), key.c_str(), text.c_str());
        check(slot >= 0 && slot < hash.get()->nSlot && hash.get()->slots[slot].key == key);
        model[key] = text;
        break;
    }
    case 2: { // remove
        const char *removed = NLIBCSzHashRemove(hash.get(), key.c_str());
        check((removed != nullptr) == model.contains(key) && (removed == nullptr || removed == model[key]));
        model.erase(key);
        break;
    }
    default: // value to key, both from inside the hash
        if (const char *value = NLIBCSzHashGetValue(hash.get(), key.c_str()); value != nullptr && index < 250) {
            const std::string moved = value;
            check(NLIBCSzHashSetValue(hash.address(), value, value) >= 0);
            model[moved] = moved;
        } else if (index >= 250) {
            NLIBCSzHashClear(hash.get());
            model.clear();
        }
        check((NLIBCSzHashGetValue(hash.get(), text.c_str()) != nullptr) == model.contains(text));
    }
    check_hash(hash.get(), model);
}

} // namespace

void fuzz_one(std::string_view input)
{
    UniqueList list(NLIBCSzListAlloc(0));
    UniqueHash hash(NLIBCSzHashAlloc(0));
    ListModel list_model;
    HashModel hash_model;
    while (input.size() > 2) {
        const uint8_t call = byte_take(&input);
        const int index = byte_take(&input);
        const std::string text = text_take(&input, '\0');
        if (call < 128)
            list_call(list, list_model, call, index, text);
        else
            hash_call(hash, hash_model, call, index, text);
    }
}

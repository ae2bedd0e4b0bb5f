#include "lib/hash.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

#include "autocleanup/unique.h"
#include "tests/support/containers.h"
#include "tests/support/outcome.h"

namespace
{

std::string key_of(int i)
{
    return "key" + std::to_string(i);
}

// Sets `key`; returns the slot.
int set(UniqueHash &hash, const std::string &key, const std::string &value = "v")
{
    return NLIBCSzHashSetValue(hash.address(), key.c_str(), value.c_str());
}

// In the order of their slots.
std::string keys(const NLIBSZHASH *hash)
{
    UniqueList list(NLIBCSzListAlloc(0));
    EXPECT_EQ(NLIBCSzHashEnumKey(hash, list.address()), list.get()->nItem);
    EXPECT_EQ(NLIBCSzHashPairNum(hash), list.get()->nItem);
    std::string text;
    for (const std::string &key : items_of(list.get()))
        text += (text.empty() ? "" : ",") + key;
    return text;
}

TEST(Hash, HomeSlots)
{
    for (const auto &[key, slot] :
         {std::pair("abc", 25), {"abcde", 21}, {"\xff\xfe", 24}, {"\xff\xff\xff\xff\x01", 0}}) {
        UniqueHash hash(NLIBCSzHashAlloc(0));
        EXPECT_EQ(set(hash, key), slot) << key; // of the last one the sum wraps to 0
        EXPECT_STREQ(NLIBCSzHashGetValue(hash.get(), key), "v") << key;
    }
}

// Runs a script of calls and returns slots and values: a word is "+key" set, "-key" remove.
std::string run(UniqueHash &hash, const char *script)
{
    std::istringstream words(script);
    std::string results;
    for (std::string word; words >> word;) {
        const std::string key = word.substr(1);
        if (word[0] == '+')
            results += std::to_string(set(hash, key, "of" + key));
        else
            results += NLIBCSzHashRemove(hash.get(), key.c_str());
        results += ' ';
        EXPECT_EQ(NLIBCSzHashGetValue(hash.get(), key.c_str()) != nullptr, word[0] == '+') << word;
    }
    return results;
}

// The keys '#', 'B', 'a' and 0x80 have home slot 4; '=', '\\' and '{' have the last one, 30.
TEST(Hash, Placement)
{
    struct {
        const char *script, *results, *left; // keys in slot order
    } static constexpr kCases[] = {
        {"+# +B +# +B", "4 5 4 5 ", "#,B"},
        {"+# -# +# -# +#", "4 of# 5 of# 5 ", "#"},                     // a tombstone at home is not reused
        {"+# +B +a -B -a +\x80 +a", "4 5 6 ofB ofa 5 6 ", "#,\x80,a"}, // the first one behind home is
        {"+# +B +a -B +a -# +a", "4 5 6 ofB 6 of# 6 ", "a"},
        {"+= +\\ -\\ +{ -= +=", "30 0 of\\ 0 of= 1 ", "{,="}, // past the last slot comes the first
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.script);
        UniqueHash hash(NLIBCSzHashAlloc(0));
        EXPECT_EQ(run(hash, row.script), row.results);
        EXPECT_EQ(keys(hash.get()), row.left);
    }
}

TEST(Hash, NoEmptySlotLeft)
{
    UniqueHash hash(NLIBCSzHashAlloc(4096));
    for (int i = 0; i < 31; i++) { // leaves a tombstone in each slot
        const char key[] = {static_cast<char>(31 + i), '\0'};
        EXPECT_EQ(set(hash, key), i);
        EXPECT_STREQ(NLIBCSzHashRemove(hash.get(), key), "v");
    }
    EXPECT_EQ(NLIBCSzHashGetValue(hash.get(), "missing"), nullptr);
    EXPECT_EQ(set(hash, "#"), 5); // the first tombstone behind home
    EXPECT_EQ(set(hash, "="), 0);
    EXPECT_EQ(hash.get()->nSlot, 31);
}

TEST(Hash, SlotsGrowAtThreeQuarters)
{
    struct {
        int pairs, slots; // with so many pairs the table still has so many slots
    } static constexpr kCases[] = {{24, 31}, {25, 119}, {90, 119}, {91, 471}};
    UniqueHash hash(NLIBCSzHashAlloc(1 << 16));
    int pairs = 0;
    for (const auto &row : kCases) {
        while (pairs < row.pairs)
            set(hash, key_of(pairs++));
        EXPECT_EQ(hash.get()->nSlot, row.slots) << row.pairs;
        EXPECT_EQ(NLIBCSzHashPairNum(hash.get()), row.pairs);
        EXPECT_EQ(hash.get()->cbPool, 1 << 16);
        for (int i = 0; i < pairs; i++)
            ASSERT_STREQ(NLIBCSzHashGetValue(hash.get(), key_of(i).c_str()), "v") << i;
    }
}

TEST(Hash, PoolGrowth)
{
    // After one pair "a" = "b" (4 bytes, 508 free): what setting takes, and the pool then.
    struct {
        const char *key;
        int value_length, pool, free_bytes;
    } static constexpr kCases[] = {
        {"c", 504, 512, 508 - 507},                       // 507 are below 508
        {"c", 505, 512 + 508 + 30 * 512, 508 + 30 * 512}, // 508 are not; the other pair moved: 4 + 508 are taken
        {"a", 507, 512 + 508 + 30 * 512, 508 + 30 * 512}, // the old value came along once more
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(testing::Message() << row.key << ' ' << row.value_length);
        UniqueHash hash(NLIBCSzHashAlloc(512));
        set(hash, "a", "b");
        const std::string value(static_cast<size_t>(row.value_length), 'x');
        set(hash, row.key, value);
        EXPECT_EQ(hash.get()->cbPool, row.pool);
        EXPECT_EQ(hash.get()->cbFree, row.free_bytes);
        EXPECT_EQ(NLIBCSzHashGetValue(hash.get(), row.key), value);
    }
    UniqueHash hash(NLIBCSzHashAlloc(512)); // no pair: the need stands in for the average
    set(hash, "a", std::string(510, 'x'));
    EXPECT_EQ(hash.get()->cbPool, 512 + 513 + 31 * 513);
    hash.get()->cbPool = INT32_MAX / 16; // as after long churn
    hash.get()->cbFree = 0;
    const NLIBSZHASH before = *hash.get();
    EXPECT_EQ(outcome(NLIBCSzHashSetValue, hash.address(), "b", "v"), (Outcome{-1, kErrOutOfMemory}));
    EXPECT_EQ(memcmp(hash.get(), &before, sizeof before), 0);
}

TEST(Hash, ReadsAndWritesWithinTheBlock)
{
    UniqueHash hash(NLIBCSzHashAlloc(512));
    set(hash, "#", std::string(505, 'x'));
    set(hash, "B", "");
    ASSERT_EQ(hash.get()->cbFree, 1);
    EXPECT_EQ(NLIBCSzHashGetValue(hash.get(), "a longer key 67"), nullptr); // its home is 4; "B" ends the block
    NLIBCSzHashSetValue(hash.address(), "#", NLIBCSzHashGetValue(hash.get(), "#") + 500);
    EXPECT_STREQ(NLIBCSzHashGetValue(hash.get(), "#"), "xxxxx");
}

TEST(Hash, GrowthDropsTombstones)
{
    UniqueHash hash(NLIBCSzHashAlloc(512));
    EXPECT_EQ(run(hash, "+# +B -#"), "4 5 of# ");
    EXPECT_EQ(set(hash, "a", std::string(600, 'x')), 5);
    EXPECT_EQ(keys(hash.get()), "B,a"); // B moved to its home
    NLIBCSzHashClear(hash.get());       // and that is a tombstone now
    EXPECT_EQ(run(hash, "+B"), "5 ");
}

TEST(Hash, BadArguments)
{
    UniqueHash hash(NLIBCSzHashAlloc(0));
    PNLIBSZHASH no_hash = nullptr;
    PNLIBSZLIST no_list = nullptr;
    for (const Outcome &each :
         {outcome(NLIBCSzHashSetValue, &no_hash, "a", "b"), outcome(NLIBCSzHashSetValue, hash.address(), "a", nullptr),
          outcome(NLIBCSzHashGetValue, no_hash, "a"), outcome(NLIBCSzHashRemove, no_hash, "a"),
          outcome(NLIBCSzHashEnumKey, hash.get(), &no_list)})
        EXPECT_EQ(each, (Outcome{-1, kErrBadParameter}));
    EXPECT_EQ(NLIBCSzHashEnumKey(hash.get(), nullptr), 0);
}

} // namespace

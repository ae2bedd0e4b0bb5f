#include "lib/hash.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

#include "autocleanup/unique.h"
#include "lib/report.h"

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

std::string keys(const NLIBSZHASH *hash)
{
    UniqueList list(NLIBCSzListAlloc(0));
    EXPECT_EQ(NLIBCSzHashEnumKey(hash, list.address()), list.get()->nItem);
    std::string text;
    for (int i = 0; i < list.get()->nItem; i++)
        text.append(i == 0 ? "" : ",").append(list.get()->items[i]);
    return text;
}

TEST(Hash, LayoutInTheBlock)
{
    for (const auto &[asked, given] : {std::pair(INT_MIN, 512), {511, 512}, {512, 512}, {4096, 4096}})
        EXPECT_EQ(UniqueHash(NLIBCSzHashAlloc(asked)).get()->cbPool, given);
    UniqueHash hash(NLIBCSzHashAlloc(600));
    EXPECT_EQ(set(hash, "abc", "xy"), 25);
    EXPECT_EQ(set(hash, "", ""), 0);
    NLIBCSzHashRemove(hash.get(), "");
    const auto *block = reinterpret_cast<const char *>(hash.get());
    const int pool = 24 + 31 * 16;
    EXPECT_EQ(memcmp(block + pool, "abc\0xy\0\0\0", 9), 0);
    static constexpr int kHeader[] = {600, 600 - 9, 31, 1};
    EXPECT_EQ(memcmp(block, kHeader, sizeof kHeader), 0);
    const auto offset = [block](int at) { // where the pointer at byte `at` of the block leads, -1 for NULL
        const char *value;
        memcpy(&value, block + at, sizeof value);
        return value == nullptr ? -1 : static_cast<int>(value - block);
    };
    EXPECT_EQ(offset(16), pool + 9);
    for (int slot = 0; slot < 31; slot++) {
        EXPECT_EQ(offset(24 + 16 * slot), slot == 25 ? pool : -1) << slot;
        EXPECT_EQ(offset(32 + 16 * slot), slot == 25 ? pool + 4 : slot == 0 ? pool + 8 : -1) << slot;
    }
}

TEST(Hash, HomeSlots)
{
    static constexpr std::pair<const char *, int> kCases[] = {
        {"", 0},
        {"a", 4},
        {"ab", 13},
        {"abc", 25},
        {"abcd", 13},
        {"abcde", 21},
        {"abcdef", 0},
        {"abcdefg", 20},
        {"abcdefgh", 10},
        {"abcdefghi", 22},
        {"\x80", 4},
        {"\xff", 7},
        {"\xff\xfe", 24},
        {"\xc3\xa4", 19},
        {"\xff\xff\xff", 15},
        {"\xff\xff\xff\xff", 3},
        {"\xff\xff\xff\xff\x01", 0}, // the sum wraps to 0
        {"\xff\xfe\xfd\xfc\xfb", 8},
    };
    for (const auto &[key, slot] : kCases) {
        UniqueHash hash(NLIBCSzHashAlloc(0));
        EXPECT_EQ(set(hash, key), slot) << key;
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
        {"+# +B +a +\x80", "4 5 6 7 ", "#,B,a,\x80"},
        {"+= +\\ +{ +", "30 0 1 2 ", "\\,{,,="}, // past the last slot comes the first
        {"+# +B +# +B", "4 5 4 5 ", "#,B"},
        {"+# -# +# -# +#", "4 of# 5 of# 5 ", "#"}, // a tombstone at home is not reused
        {"+# +B -# +a", "4 5 of# 6 ", "B,a"},
        {"+# +B +a -B -a +\x80 +a", "4 5 6 ofB ofa 5 6 ", "#,\x80,a"}, // the first one behind home is
        {"+# +B +a -B +a -# +a", "4 5 6 ofB 6 of# 6 ", "a"},
        {"+= +\\ -\\ +{ -= +=", "30 0 of\\ 0 of= 1 ", "{,="},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.script);
        UniqueHash hash(NLIBCSzHashAlloc(0));
        EXPECT_EQ(run(hash, row.script), row.results);
        EXPECT_EQ(keys(hash.get()), row.left);
    }
}

// Sets and removes a key for each slot until none is empty.
UniqueHash full_of_tombstones()
{
    UniqueHash hash(NLIBCSzHashAlloc(4096));
    for (int i = 0; i < 31; i++) {
        const char key[] = {static_cast<char>(31 + i), '\0'};
        EXPECT_EQ(set(hash, key), i);
        EXPECT_STREQ(NLIBCSzHashRemove(hash.get(), key), "v");
    }
    return hash;
}

TEST(Hash, NoEmptySlotLeft)
{
    UniqueHash hash = full_of_tombstones();
    EXPECT_EQ(NLIBCSzHashGetValue(hash.get(), "missing"), nullptr);
    EXPECT_EQ(NLIBCSzHashRemove(hash.get(), "missing"), nullptr);
    EXPECT_EQ(set(hash, "#"), 5); // the first tombstone behind home
    EXPECT_EQ(set(hash, "="), 0);
    EXPECT_EQ(hash.get()->nSlot, 31);

    hash = full_of_tombstones();
    for (NLIBSZHASH::Slot *slot = hash.get()->slots; slot < hash.get()->slots + 31; slot++)
        if (slot != hash.get()->slots + 4)
            slot->key = slot->value; // occupied, all with the key "v"
    EXPECT_EQ(NLIBCSzHashGetValue(hash.get(), "#"), nullptr);
    EXPECT_EQ(set(hash, "#"), 4); // nothing but the home tombstone is left
}

TEST(Hash, SlotsGrowAtThreeQuarters)
{
    struct {
        int pairs, slots; // with so many pairs the table still has so many slots
    } static constexpr kCases[] = {{24, 31}, {25, 119}, {90, 119}, {91, 471}, {354, 471}, {355, 1879}};
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
        {"a", 506, 512, 508 - 507},                       // replaced by a longer one: only the value
        {"a", 507, 512 + 508 + 30 * 512, 508 + 30 * 512}, // the old value came along once more
        {"a", 1, 512, 508},                               // in place
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
        EXPECT_EQ(hash.get()->nSlot, 31);
    }
    UniqueHash hash(NLIBCSzHashAlloc(512)); // no pair: the need stands in for the average
    set(hash, "a", std::string(510, 'x'));
    EXPECT_EQ(hash.get()->cbPool, 512 + 513 + 31 * 513);
}

TEST(Hash, LookupStaysInTheBlock)
{
    UniqueHash hash(NLIBCSzHashAlloc(512));
    set(hash, "#", std::string(505, 'x'));
    set(hash, "B", "");
    ASSERT_EQ(hash.get()->cbFree, 1);
    EXPECT_EQ(NLIBCSzHashGetValue(hash.get(), "a longer key 67"), nullptr); // its home is 4; "B" ends the block
}

TEST(Hash, TakesAPartOfItsOwnValue)
{
    UniqueHash hash(NLIBCSzHashAlloc(0));
    set(hash, "key", "0123456789");
    NLIBCSzHashSetValue(hash.address(), "key", NLIBCSzHashGetValue(hash.get(), "key") + 1);
    EXPECT_STREQ(NLIBCSzHashGetValue(hash.get(), "key"), "123456789");
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

TEST(Hash, ChurnTakesNoSlots)
{
    UniqueHash hash(NLIBCSzHashAlloc(0));
    for (int i = 0; i < 100000; i++) {
        ASSERT_GE(set(hash, key_of(i)), 0);
        ASSERT_STREQ(NLIBCSzHashRemove(hash.get(), key_of(i).c_str()), "v");
    }
    EXPECT_EQ(hash.get()->nSlot, 31);
    EXPECT_EQ(NLIBCSzHashGetValue(hash.get(), "missing"), nullptr);
}

TEST(Hash, PoolBeyondInt32IsRefused)
{
    UniqueHash hash(NLIBCSzHashAlloc(0));
    set(hash, "a");
    hash.get()->cbPool = INT32_MAX / 16; // as after long churn
    hash.get()->cbFree = 0;
    const NLIBSZHASH before = *hash.get();
    const NLIBSZHASH *block = hash.get();
    EXPECT_EQ(set(hash, "b"), -1);
    EXPECT_EQ(NLIBCErrGet(), kErrOutOfMemory);
    EXPECT_EQ(hash.get(), block);
    EXPECT_EQ(memcmp(hash.get(), &before, sizeof before), 0);
    EXPECT_EQ(keys(hash.get()), "a");
}

TEST(Hash, BadArguments)
{
    UniqueHash hash(NLIBCSzHashAlloc(0));
    PNLIBSZHASH no_hash = nullptr;
    PNLIBSZLIST no_list = nullptr;
    const bool failed[] = {
        // clang-format off
        NLIBCSzHashSetValue(nullptr, "a", "b") == -1,            NLIBCSzHashSetValue(&no_hash, "a", "b") == -1,
        NLIBCSzHashSetValue(hash.address(), "a", nullptr) == -1, NLIBCSzHashSetValue(hash.address(), nullptr, "b") == -1,
        NLIBCSzHashGetValue(nullptr, "a") == nullptr,            NLIBCSzHashGetValue(hash.get(), nullptr) == nullptr,
        NLIBCSzHashRemove(nullptr, "a") == nullptr,              NLIBCSzHashRemove(hash.get(), nullptr) == nullptr,
        NLIBCSzHashPairNum(nullptr) == -1,                       NLIBCSzHashEnumKey(nullptr, nullptr) == -1,
        NLIBCSzHashEnumKey(hash.get(), &no_list) == -1,
        // clang-format on
    };
    for (size_t i = 0; i < std::size(failed); i++)
        EXPECT_TRUE(failed[i]) << i;
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
    EXPECT_EQ(NLIBCSzHashEnumKey(hash.get(), nullptr), 0);
    NLIBCSzHashFree(nullptr);
    NLIBCSzHashClear(nullptr);
}

} // namespace

#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "storage/space_block.h"
#include "tests/support/alloc_fault.h"

namespace
{

constexpr char kMagic[] = "NORVESSA_SUPER_BLOCK";

std::string big(std::uint64_t value, int bytes = 4)
{
    std::string text;
    while (bytes-- > 0)
        text += static_cast<char>(value >> 8 * bytes);
    return text;
}
std::string little(std::uint32_t value)
{
    const std::string text = big(value);
    return {text.rbegin(), text.rend()};
}
// A field full to its last byte with something behind the text's end, as an old system may have left it.
std::string field(std::string_view text, size_t bytes)
{
    std::string whole(text);
    whole += '\0';
    whole.resize(bytes, '~');
    return whole;
}
std::string raids(std::uint32_t count)
{
    std::string text = big(count);
    for (std::uint32_t i = 0; i < count; i++)
        text += field("uuid" + std::to_string(i), 64);
    return text;
}

struct First {
    std::uint32_t version = 5, type = 8;
    std::string raids = ::raids(2);
    std::uint32_t mode = 4;
    std::string id = field("cache1", 256), limit = field("NORV_12", 16);
};
std::string first_block(const First &first)
{
    const std::uint32_t version = first.version;
    std::string text = field(kMagic, 64) + big(version) + big(first.type) + field("space", 256);
    if (version >= 4)
        text += field("one", 128) + field("two", 256) + field("three", 256);
    if (version >= 3)
        text += big(0x01020304);
    if (version >= 5)
        text += big(first.mode) + first.id;
    text += big(0x00060708) + field("lvm1", 128) + field("lvm2", 256) + big(0x00030405);
    if (version >= 2)
        text += first.raids;
    return version >= 5 ? text + first.limit : text;
}

std::string cache(std::string_view id, std::uint32_t mode, std::uint64_t size, std::uint32_t flags)
{
    return field(id, 64) + big(mode) + big(size, 8) + big(flags);
}
std::string second_block(std::uint32_t version, std::uint32_t count, const std::string &caches)
{
    return field(kMagic, 64) + big(version) + big(7) + little(9) + big(count) + caches;
}

std::string told(const NORVBlock &block)
{
    std::string text = std::to_string(block.version) + " capability " + std::to_string(block.capability) + " feature " +
                       std::to_string(block.feature) + " type " + std::to_string(block.spaceType);
    for (const char *field : {block.magic, block.spacePath, block.text1, block.text2, block.text3})
        text += std::string(" ") + field;
    for (const std::uint32_t word : {block.raidMark, block.lvmMark, block.lvmValue})
        text += " " + std::to_string(word);
    text += std::string(" ") + block.lvmText1 + " " + block.lvmText2 + " [";
    for (int i = 0; i < block.raidList->nItem; i++)
        text += std::string(" ") + NLIBCSzListGet(block.raidList, i);
    text += " ] " + std::string(block.raidGroupLimit);
    for (const BlockCache *record = block.cacheInfo; record != nullptr; record = record->next)
        text += " {" + std::string(record->id) + " mode " + std::to_string(record->mode) + " size " +
                std::to_string(record->size) + " flags " + std::to_string(record->flagA) +
                std::to_string(record->flagB) + std::to_string(record->flagC) + " count " +
                std::to_string(record->count) + "}";
    return text;
}
// Reads a disk that begins with `bytes`, through a descriptor that cannot write.
int read_block(std::string_view bytes, NORVBlock *block)
{
    const UniqueFd file(memfd_create("disk", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(pwrite(file.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(fcntl(file.get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK), 0);
    return space_block_read(file.get(), "/dev/sda", 0, block);
}

TEST(SpaceBlock, EveryVersion)
{
    static const std::string kHead = " capability 0 feature 0 type 8 NORVESSA_SUPER_BLOCK space ";
    static const std::string kLvm = " 395016 197637 lvm1 lvm2 [", kRaids = " uuid0 uuid1 ] ";
    const std::string kTold[] = {
        "1" + kHead + "   0" + kLvm + " ] ",
        "2" + kHead + "   0" + kLvm + kRaids,
        "3" + kHead + "   16909060" + kLvm + kRaids,
        "4" + kHead + "one two three 16909060" + kLvm + kRaids,
        "5" + kHead + "one two three 16909060" + kLvm + kRaids + "NORV_12 {cache1 mode 4 size 0 flags 000 count 1}",
    };
    const UniqueSpaceBlock block(space_block_alloc());
    for (std::uint32_t version = 1; version <= 5; version++) {
        const std::string bytes = first_block({.version = version}) + std::string(64, '\0');
        EXPECT_EQ(read_block(bytes, block.get()), 1);
        EXPECT_EQ(told(*block.get()), kTold[version - 1]);
    }
    EXPECT_EQ(read_block(std::string(4096, '\0'), block.get()), 0);
    EXPECT_EQ(told(*block.get()), "6 capability 0 feature 0 type 0      0 0 0   [ ] "); // nothing of the last disk
}

TEST(SpaceBlock, SecondBlock)
{
    const std::string two = cache("cache1", 4, 0x100000002, 5) + cache("other", 1, 3, 0x70002);
    const std::string kTwo =
        " {cache1 mode 4 size 4294967298 flags 101 count 1} {other mode 1 size 3 flags 010 count 7}";
    const std::string kOld = " {cache1 mode 4 size 0 flags 000 count 1}";
    const struct {
        First first;
        std::string second;
        int result;
        std::string caches;
    } kCases[] = {
        {{}, second_block(6, 2, two), 1, kTwo},
        {{}, second_block(6, 0, ""), 1, kOld},
        {{.type = 4}, second_block(6, 2, two), 1, kOld + kTwo},
        {{.mode = 3}, second_block(6, 2, two), 1, kTwo},
        {{.version = 4}, second_block(0x10000, 2, two), 1, kTwo},
        {{}, second_block(6, 1, cache("cache1", 5, 0, 0)), 1, kOld},
        {{}, second_block(6, 1, cache("cache", 4, 0, 0)), 1, kOld},
        {{.id = std::string(256, 'i')},
         second_block(6, 1, cache(std::string(63, 'i'), 4, 1, 0)),
         1,
         " {" + std::string(63, 'i') + " mode 4 size 1 flags 000 count 1}"},
        {{}, second_block(5, 2, two), -1, ""},
    };
    const UniqueSpaceBlock block(space_block_alloc());
    for (const auto &[first, second, result, caches] : kCases) {
        SCOPED_TRACE(caches);
        EXPECT_EQ(read_block(first_block(first) + second, block.get()), result);
        const std::string text = told(*block.get());
        EXPECT_EQ(text.substr(std::min(text.find(" {"), text.size())), caches);
        EXPECT_EQ(block.get()->capability, result == 1 ? 7U : 0);
        EXPECT_EQ(block.get()->feature, result == 1 ? 9U : 0);
    }
    for (const std::uint32_t count : {1024U, 1025U}) {
        const std::string many = second_block(6, count, cache("a", 1, 0, 0) + std::string(80 * 1024, '\0'));
        EXPECT_EQ(read_block(first_block({.mode = 3}) + many, block.get()), count == 1024 ? 1 : -1);
    }
}

// One thing changed in a good block: the bytes at `at` become `bytes`.
TEST(SpaceBlock, BreaksAndLimits)
{
    const std::string one = first_block({.version = 1}), five = first_block({});
    const struct {
        const std::string &block;
        size_t at;
        std::string bytes;
        int result;
        const char *holds; // in what is told
    } kCases[] = {
        {five, 0, "n", 0, "6 capability"},
        {five, 21, "S", 1, "5 capability"},
        {five, 64, big(0), 0, "6 capability"},
        {five, 64, big(6), -1, "6 capability"},
        {five, 64, little(5), 1, "5 capability"},
        {five, 68, little(8), 1, "type 134217728"}, // only version 1 knows the old order
        {one, 68, little(8), 1, "type 8 "},
        {one, 72 + 256, little(12345), 1, " 12345 "},
        {five, 72, std::string(256, 's'), 1, "one two"},
        {five, five.size() - 16, "NORV_24", 1, "NORV_24"},
        {five, five.size() - 16, "NORV_064", 1, "NORV_UNKNOW"},
    };
    const UniqueSpaceBlock block(space_block_alloc());
    for (const auto &[good, at, bytes, result, holds] : kCases) {
        SCOPED_TRACE(std::to_string(at) + " " + holds);
        std::string changed = good;
        changed.replace(at, bytes.size(), bytes);
        EXPECT_EQ(read_block(changed, block.get()), result);
        EXPECT_NE(told(*block.get()).find(holds), std::string::npos) << told(*block.get());
    }
    for (const std::uint32_t count : {1024U, 1025U}) {
        EXPECT_EQ(read_block(first_block({.raids = raids(count)}), block.get()), count == 1024 ? 1 : -1);
        EXPECT_EQ(block.get()->raidList->nItem, count == 1024 ? 1024 : 0);
    }
    EXPECT_EQ(space_block_read(-1, "none", 0, block.get()), -1);
}

TEST(SpaceBlock, EveryTruncation)
{
    const std::string second = second_block(6, 2, cache("cache1", 4, 1, 1) + cache("other", 1, 3, 2));
    const UniqueSpaceBlock block(space_block_alloc());
    for (std::uint32_t version = 1; version <= 5; version++) {
        const std::string first = first_block({.version = version}), whole = first + second;
        for (size_t size = 0; size <= whole.size(); size++) {
            const bool is_whole = size == whole.size() || (size >= first.size() && size < first.size() + 64);
            ASSERT_EQ(read_block(std::string_view(whole).substr(0, size), block.get()), is_whole ? 1 : -1) << size;
        }
    }
}

TEST(SpaceBlock, NoMemory)
{
    const std::string bytes = first_block({.raids = raids(20)}) + second_block(6, 1, cache("cache1", 4, 1, 1));
    for (int nth = 1, struck = 1; struck != 0; nth++) {
        AllocFault fault(nth);
        int result = -1;
        {
            const UniqueSpaceBlock block(space_block_alloc());
            if (block)
                result = read_block(bytes, block.get());
        }
        struck = fault.struck() ? 1 : 0;
        EXPECT_EQ(result, struck != 0 ? -1 : 1);
        EXPECT_EQ(fault.held(), 0);
    }
}

} // namespace

// The super block of a disk. The input is the disk from the block's place on.
// Covers: storage/space_block_format.cpp storage/space_block_read.cpp(raid_list_read cache_make old_cache_read
// Covers: limit_is_known body_read cache_list_read magic_take head_store version_take first_block_read
// Covers: second_block_read)
#include <sys/mman.h>
#include <unistd.h>

#include "storage/space_block.h"
#include "tests/fuzz/fuzz.h"

namespace
{

void block_check(const NORVBlock &block, int result)
{
    if (result != 1) {
        check(block.magic[0] == '\0' && block.cacheInfo == nullptr && block.raidList->nItem == 0,
              "something is left of a block that was not read");
        return;
    }
    check(strcmp(block.magic, "NORVESSA_SUPER_BLOCK") == 0 && block.version >= 1, "not a block");
    check(block.version >= kSpaceBlockNewVersion || (block.capability == 0 && block.feature == 0), "a head of nowhere");
    check_ended(block.spacePath);
    check_ended(block.text1);
    check_ended(block.text2);
    check_ended(block.text3);
    check_ended(block.lvmText1);
    check_ended(block.lvmText2);
    check_ended(block.raidGroupLimit);
    check(block.raidList->nItem <= static_cast<int>(kBlockRaidsMax), "too many identifiers");
    check(space_block_cache_count(block.cacheInfo) <= static_cast<int>(kBlockCachesMax) + 1, "too many caches");
    for (const BlockCache *record = block.cacheInfo; record != nullptr; record = record->next) {
        check_ended(record->id);
        check(record->count >= 1 && record->flagA <= 1 && record->flagB <= 1 && record->flagC <= 1, "a bad cache");
    }
}

} // namespace

void fuzz_one(std::string_view input)
{
    static const int disk = memfd_create("disk", MFD_CLOEXEC);
    check(ftruncate(disk, 0) == 0 && pwrite(disk, input.data(), input.size(), 0) == static_cast<ssize_t>(input.size()));
    const UniqueSpaceBlock block(space_block_alloc());
    block_check(*block.get(), space_block_read(disk, "disk", 0, block.get()));
}

// The super block of a disk. The input is the disk from the block's place on.
// Covers: storage/space_block_format.cpp storage/space_block_read.cpp(raid_list_read cache_make old_cache_read
// Covers: limit_is_known body_read cache_list_read magic_take head_store version_take first_block_read
// Covers: second_block_read)
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

#include "storage/space_block.h"

namespace
{

void require(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "space_block_fuzz: %s\n", what);
    abort();
}

template <size_t kRoom> void require_ended(const char (&field)[kRoom])
{
    require(field[kRoom - 1] == '\0', "a text without an end");
}

void block_check(const NORVBlock &block, int result)
{
    if (result != 1) {
        require(block.magic[0] == '\0' && block.cacheInfo == nullptr && block.raidList->nItem == 0,
                "something is left of a block that was not read");
        return;
    }
    require(strcmp(block.magic, "NORVESSA_SUPER_BLOCK") == 0 && block.version >= 1, "not a block");
    require(block.version >= kSpaceBlockNewVersion || (block.capability == 0 && block.feature == 0),
            "a head of nowhere");
    require_ended(block.spacePath);
    require_ended(block.text1);
    require_ended(block.text2);
    require_ended(block.text3);
    require_ended(block.lvmText1);
    require_ended(block.lvmText2);
    require_ended(block.raidGroupLimit);
    require(block.raidList->nItem <= static_cast<int>(kBlockRaidsMax), "too many identifiers");
    require(space_block_cache_count(block.cacheInfo) <= static_cast<int>(kBlockCachesMax) + 1, "too many caches");
    for (const BlockCache *record = block.cacheInfo; record != nullptr; record = record->next) {
        require_ended(record->id);
        require(record->count >= 1 && record->flagA <= 1 && record->flagB <= 1 && record->flagC <= 1, "a bad cache");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int disk = memfd_create("disk", MFD_CLOEXEC);
    require(ftruncate(disk, 0) == 0 && pwrite(disk, data, size, 0) == static_cast<ssize_t>(size), "no memory file");
    const UniqueSpaceBlock block(space_block_alloc());
    block_check(*block.get(), space_block_read(disk, "disk", 0, block.get()));
    return 0;
}

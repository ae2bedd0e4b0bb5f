#include <cstdlib>

#include "lib/report.h"
#include "storage/space_block.h"

static constexpr int kRaidListRoom = 128;

NORVBlock *space_block_alloc()
{
    UniqueSpaceBlock block(static_cast<NORVBlock *>(calloc(1, sizeof(NORVBlock))));
    if (block)
        block.get()->raidList = NLIBCSzListAlloc(kRaidListRoom);
    if (!block || block.get()->raidList == nullptr) {
        NORV_LOG(LOG_ERR, "failed to alloc NORV_BLOCK, errno=%m");
        return fail(kErrOutOfMemory);
    }
    return block.release();
}

void space_block_free(NORVBlock *block)
{
    if (block == nullptr)
        return;
    NLIBCSzListFree(block->raidList);
    space_block_cache_free(block->cacheInfo);
    free(block);
}

void space_block_reset(NORVBlock *block)
{
    space_block_cache_free(block->cacheInfo);
    NLIBCSzListReset(block->raidList);
    NLIBSZLIST *const list = block->raidList;
    *block = {};
    block->version = kSpaceBlockNewVersion;
    block->raidList = list;
}

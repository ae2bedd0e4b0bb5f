#include "storage/root_block.h"
#include "storage/root_block_op.h"

RootBlock *root_block_alloc()
{
    auto *block = static_cast<RootBlock *>(calloc(1, sizeof(RootBlock)));
    if (block == nullptr)
        return fail(kErrOutOfMemory);
    return block;
}

void root_block_free(RootBlock *block)
{
    if (block == nullptr)
        return;
    free(block->layout);
    free(block->extraVersion);
    free(block->capability);
    free(block);
}

int root_block_update_capability(uint32_t capability, RootBlock *block)
{
    if (block == nullptr)
        return fail(kErrBadParameter);
    return root_block_member_set(&block->capability, capability);
}

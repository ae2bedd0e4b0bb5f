#include <cstdlib>
#include <cstring>

#include "lib/report.h"
#include "storage/space_block.h"

BlockCache *space_block_cache_alloc()
{
    auto *record = static_cast<BlockCache *>(calloc(1, sizeof(BlockCache)));
    if (record == nullptr)
        return fail(kErrOutOfMemory);
    record->mode = kBlockCacheFreshMode;
    record->count = 1;
    return record;
}

void space_block_cache_free(BlockCache *list)
{
    while (list != nullptr) {
        BlockCache *next = list->next;
        free(list);
        list = next;
    }
}

// The link that leads to the first record of this id, or that ends the list.
static BlockCache **link_find(BlockCache **list, const char *id)
{
    while (*list != nullptr && strcmp((*list)->id, id) != 0)
        list = &(*list)->next;
    return list;
}

BlockCache *space_block_cache_find(BlockCache *list, const char *id)
{
    return id != nullptr ? *link_find(&list, id) : nullptr;
}

int space_block_cache_remove(BlockCache **list, const char *id)
{
    if (list == nullptr || id == nullptr)
        return fail(kErrBadParameter);
    BlockCache **link = link_find(list, id);
    BlockCache *record = *link;
    if (record == nullptr)
        return fail(kErrKeyMissing);
    *link = record->next;
    free(record);
    return 0;
}

void space_block_cache_append(BlockCache **list, BlockCache *tail)
{
    while (*list != nullptr)
        list = &(*list)->next;
    *list = tail;
}

void space_block_cache_copy(BlockCache *to, const BlockCache *from)
{
    BlockCache *next = to->next;
    *to = *from;
    to->next = next;
}

int space_block_cache_info_add(NORVBlock *block, const BlockCache *record)
{
    if (block == nullptr || record == nullptr)
        return fail(kErrBadParameter);
    BlockCache **link = link_find(&block->cacheInfo, record->id);
    if (*link == nullptr)
        *link = space_block_cache_alloc();
    if (*link == nullptr)
        return -1; // the allocation has noted why
    space_block_cache_copy(*link, record);
    return 0;
}

BlockCache *space_block_cache_clone(const BlockCache *list)
{
    UniqueBlockCache copy;
    for (BlockCache **link = copy.address(); list != nullptr; list = list->next, link = &(*link)->next) {
        *link = space_block_cache_alloc();
        if (*link == nullptr)
            return nullptr;
        space_block_cache_copy(*link, list);
    }
    return copy.release();
}

int space_block_cache_count(const BlockCache *list)
{
    int count = 0;
    for (; list != nullptr; list = list->next)
        count++;
    return count;
}

#include <algorithm>
#include <cstring>
#include <unistd.h>

#include "lib/report.h"
#include "lib/text.h"
#include "storage/space_block_format.h"

namespace
{

constexpr char kMagic[] = "NORVESSA_SUPER_BLOCK"; // compared with its NUL
constexpr uint32_t kFirstBlockNewest = 5;
constexpr const char *kRaidGroupLimits[] = {"NORV_06", "NORV_12", "NORV_24"};
static_assert(sizeof("NORV_06") == 8); // compared with their NUL

int raid_list_read(SpaceReader *reader, uint32_t version, NORVBlock *block)
{
    SpaceListHead head = {};
    if (space_fields_take(reader, kSpaceRaidHead, version, &head) != 0)
        return -1;
    if (head.count > kBlockRaidsMax) {
        NORV_LOG(LOG_ERR, "invalid raid count");
        return fail(kErrBadFormat);
    }
    for (uint32_t i = 0; i < head.count; i++) {
        SpaceRaid identifier;
        if (space_fields_take(reader, kSpaceRaid, version, &identifier) != 0)
            return -1;
        if (NLIBCSzListPush(&block->raidList, identifier.text) < 0)
            return -1;
    }
    return 0;
}

BlockCache *cache_make(const SpaceCache &stored)
{
    BlockCache *record = space_block_cache_alloc();
    if (record == nullptr)
        return nullptr;
    memcpy(record->id, stored.id, sizeof(record->id));
    record->mode = stored.mode;
    record->size = stored.size;
    record->flagA = stored.flags & 1;
    record->flagB = stored.flags >> 1 & 1;
    record->flagC = stored.flags >> 2 & 1;
    record->count = std::max(stored.flags >> 16, 1U);
    return record;
}

// The one cache that a first block can have.
int old_cache_read(SpaceReader *reader, uint32_t version, NORVBlock *block)
{
    SpaceCache stored = {};
    stored.mode = kBlockCacheFreshMode;
    if (space_fields_take(reader, kSpaceOldCache, version, &stored) != 0)
        return -1;
    if (stored.mode == kBlockCacheFreshMode)
        return 0;
    block->cacheInfo = cache_make(stored);
    return block->cacheInfo != nullptr ? 0 : -1;
}

bool limit_is_known(const NORVBlock &block)
{
    return std::ranges::any_of(kRaidGroupLimits,
                               [&block](const char *limit) { return memcmp(block.raidGroupLimit, limit, 8) == 0; });
}

int body_read(SpaceReader *reader, uint32_t version, NORVBlock *block)
{
    if (space_fields_take(reader, kSpaceInfo, version, block) != 0)
        return -1;
    if (old_cache_read(reader, version, block) != 0)
        return -1;
    if (space_fields_take(reader, kSpaceLvm, version, block) != 0)
        return -1;
    if (raid_list_read(reader, version, block) != 0)
        return -1;
    if (space_fields_take(reader, kSpaceLimit, version, block) != 0)
        return -1;
    if (version >= kSpaceLimitFields[0].since && !limit_is_known(*block))
        text_cut(block->raidGroupLimit, kRaidGroupUnknown);
    return 0;
}

// Reads the list of caches. It replaces the first block's record where the two must agree, and comes behind it
// elsewhere; where they do not agree the list is left alone.
int cache_list_read(SpaceReader *reader, NORVBlock *block)
{
    SpaceListHead head;
    if (space_fields_take(reader, kSpaceCacheHead, kSpaceBlockNewVersion, &head) != 0)
        return -1;
    if (head.count > kBlockCachesMax) {
        NORV_LOG(LOG_ERR, "invalid cache count");
        return fail(kErrBadFormat);
    }
    const BlockCache *old = block->spaceType != kSpaceTypeUnchecked ? block->cacheInfo : nullptr;
    UniqueBlockCache list;
    BlockCache **link = list.address();
    for (uint32_t i = 0; i < head.count; i++) {
        SpaceCache stored;
        if (space_fields_take(reader, kSpaceCache, kSpaceBlockNewVersion, &stored) != 0)
            return -1;
        if (i == 0 && old != nullptr && (stored.mode != old->mode || strcmp(stored.id, old->id) != 0)) {
            NORV_LOG(LOG_ERR, "Cache Info is not consistent, we shuold skip read cache info afterward");
            return 0;
        }
        *link = cache_make(stored);
        if (*link == nullptr)
            return -1;
        link = &(*link)->next;
    }
    if (old != nullptr && list) {
        space_block_cache_free(block->cacheInfo);
        block->cacheInfo = nullptr;
    }
    space_block_cache_append(&block->cacheInfo, list.release());
    return 0;
}

// Reads a block's magic. Returns 1, 0 when it is not ours, -1, logged. At the end of the device there need not be one
// where it `is_optional`.
int magic_take(SpaceReader *reader, bool is_optional, char (&magic)[64])
{
    const SpaceTaken taken = space_bytes_take(reader, reinterpret_cast<uint8_t *>(magic), sizeof(magic));
    if (taken == SpaceTaken::kAll)
        return memcmp(magic, kMagic, sizeof(kMagic)) == 0 ? 1 : 0;
    if (taken == SpaceTaken::kEnd && is_optional)
        return 0;
    NORV_LOG(LOG_ERR, "Fail to read norv block magic");
    return fail(kErrRead);
}

void head_store(const char (&magic)[64], uint32_t version, NORVBlock *block)
{
    memcpy(block->magic, magic, sizeof(magic) - 1);
    block->version = version;
}

int version_take(SpaceReader *reader, const char *name, uint32_t *version)
{
    if (space_word_take(reader, version))
        return 0;
    NORV_LOG(LOG_ERR, "failed to read version %s", name);
    return fail(kErrRead);
}

int first_block_read(SpaceReader *reader, const char *name, NORVBlock *block)
{
    char magic[64];
    uint32_t version;
    const int found = magic_take(reader, false, magic);
    if (found != 1)
        return found;
    if (version_take(reader, name, &version) != 0)
        return -1;
    if (version == 0)
        return 0;
    if (version > kFirstBlockNewest) {
        NORV_LOG(LOG_ERR, "bad norvblock version %d of %s", static_cast<int>(version), name);
        return fail(kErrBadFormat);
    }
    if (body_read(reader, version, block) != 0)
        return -1;
    head_store(magic, version, block);
    return 1;
}

// Reads what newer systems put behind the first block, if they did. Returns 0; -1.
int second_block_read(SpaceReader *reader, const char *name, NORVBlock *block)
{
    char magic[64];
    uint32_t version, capability, feature;
    const int found = magic_take(reader, true, magic);
    if (found != 1)
        return found;
    if (version_take(reader, name, &version) != 0)
        return -1;
    if (!space_word_take(reader, &capability)) {
        NORV_LOG(LOG_ERR, "failed to read capability %s", name);
        return fail(kErrRead);
    }
    if (!space_word_take(reader, &feature)) {
        NORV_LOG(LOG_ERR, "failed to read feature %s", name);
        return fail(kErrRead);
    }
    if (version < kSpaceBlockNewVersion) {
        NORV_LOG(LOG_ERR, "bad norvblock new version %d of %s", static_cast<int>(version), name);
        return fail(kErrBadFormat);
    }
    if (cache_list_read(reader, block) != 0)
        return -1;
    head_store(magic, version, block);
    block->capability = capability;
    block->feature = feature;
    return 0;
}

} // namespace

int space_block_read(int fd, const char *name, int64_t offset, NORVBlock *block)
{
    space_block_reset(block);
    if (lseek(fd, offset, SEEK_SET) < 0) {
        NORV_LOG(LOG_ERR, "Fail to lseek. errno=%m");
        return fail(kErrRead);
    }
    SpaceReader reader(fd);
    int result = first_block_read(&reader, name, block);
    if (result == 1 && second_block_read(&reader, name, block) != 0)
        result = -1;
    if (result != 1)
        space_block_reset(block);
    return result;
}

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <unistd.h>

#include "lib/io.h"
#include "lib/report.h"
#include "lib/text.h"
#include "storage/space_block.h"

namespace
{

constexpr char kMagic[] = "NORVESSA_SUPER_BLOCK"; // compared with its NUL
constexpr uint32_t kFirstBlockNewest = 5;
constexpr const char *kRaidGroupLimits[] = {"NORV_06", "NORV_12", "NORV_24"};
static_assert(sizeof("NORV_06") == 8); // compared with their NUL

// A field of a block on disk. Fields follow each other without padding.
struct BlockField {
    uint32_t since;      // first version that has it
    size_t disk_bytes;   // a number has 4 or 8, a text more
    size_t memory_bytes; // what a text has more on disk is dropped
    size_t member;       // byte offset in the record
};
#define BLOCK_FIELD(since, disk_bytes, Record, name)                                                                   \
    {                                                                                                                  \
        since, disk_bytes, sizeof(Record::name), offsetof(Record, name)                                                \
    }

struct StoredCache { // a cache as it stands on disk
    char id[sizeof(BlockCache::id)];
    uint32_t mode;
    uint64_t size;
    uint32_t flags;
};

struct ListHead {
    uint32_t count;
};
struct RaidIdentifier {
    char text[64];
};

// The first block behind magic and version, in this order.
constexpr BlockField kSpaceFields[] = {
    BLOCK_FIELD(1, 4, NORVBlock, spaceType), BLOCK_FIELD(1, 256, NORVBlock, spacePath),
    BLOCK_FIELD(4, 128, NORVBlock, text1),   BLOCK_FIELD(4, 256, NORVBlock, text2),
    BLOCK_FIELD(4, 256, NORVBlock, text3),   BLOCK_FIELD(3, 4, NORVBlock, raidMark),
};
constexpr BlockField kOldCacheFields[] = {
    BLOCK_FIELD(5, 4, StoredCache, mode),
    BLOCK_FIELD(5, 256, StoredCache, id),
};
constexpr BlockField kLvmFields[] = {
    BLOCK_FIELD(1, 4, NORVBlock, lvmMark),
    BLOCK_FIELD(1, 128, NORVBlock, lvmText1),
    BLOCK_FIELD(1, 256, NORVBlock, lvmText2),
    BLOCK_FIELD(1, 4, NORVBlock, lvmValue),
};
constexpr BlockField kRaidHeadFields[] = {BLOCK_FIELD(2, 4, ListHead, count)};
constexpr BlockField kRaidFields[] = {BLOCK_FIELD(2, 64, RaidIdentifier, text)}; // as often as the count says
constexpr BlockField kLimitFields[] = {BLOCK_FIELD(5, 16, NORVBlock, raidGroupLimit)};

// The second block behind magic, version, capability and feature.
constexpr BlockField kCacheHeadFields[] = {BLOCK_FIELD(6, 4, ListHead, count)};
// As often as the count says.
constexpr BlockField kCacheFields[] = {
    BLOCK_FIELD(6, 64, StoredCache, id),
    BLOCK_FIELD(6, 4, StoredCache, mode),
    BLOCK_FIELD(6, 8, StoredCache, size),
    BLOCK_FIELD(6, 4, StoredCache, flags),
};

constexpr bool is_text(const BlockField &field)
{
    return field.disk_bytes > sizeof(uint64_t);
}

// Bytes of the fields on disk; 0 when a number would change its width or a text not fill its member.
constexpr size_t fields_bytes(std::span<const BlockField> fields, uint32_t version)
{
    size_t bytes = 0;
    for (const BlockField &field : fields) {
        if (is_text(field) ? field.disk_bytes < field.memory_bytes : field.disk_bytes != field.memory_bytes)
            return 0;
        bytes += field.since <= version ? field.disk_bytes : 0;
    }
    return bytes;
}
static_assert(fields_bytes(kSpaceFields, 1) == 260 && fields_bytes(kLvmFields, 1) == 392);
static_assert(fields_bytes(kRaidHeadFields, 1) == 0 && fields_bytes(kRaidHeadFields, 2) == 4);
static_assert(fields_bytes(kSpaceFields, 2) == 260 && fields_bytes(kSpaceFields, 3) == 264);
static_assert(fields_bytes(kSpaceFields, 4) == 904 && fields_bytes(kSpaceFields, 5) == 904);
static_assert(fields_bytes(kOldCacheFields, 4) == 0 && fields_bytes(kOldCacheFields, 5) == 260);
static_assert(fields_bytes(kLvmFields, 5) == 392 && fields_bytes(kRaidFields, 5) == 64);
static_assert(fields_bytes(kLimitFields, 4) == 0 && fields_bytes(kLimitFields, 5) == 16);
static_assert(fields_bytes(kCacheHeadFields, 6) == 4 && fields_bytes(kCacheFields, 6) == 80);

// Fields that are read in one go, and what is logged when they cannot be.
struct FieldGroup {
    std::span<const BlockField> fields;
    const char *trouble;
};
constexpr FieldGroup kSpace = {kSpaceFields, "failed to read space info from disk norvblock"};
constexpr FieldGroup kOldCache = {kOldCacheFields, "failed to read cache info from disk norvblock"};
constexpr FieldGroup kLvm = {kLvmFields, "failed to read LVM info into disk norvblock"};
constexpr FieldGroup kRaidHead = {kRaidHeadFields, "failed to read RAID Count from disk norvblock"};
constexpr FieldGroup kRaid = {kRaidFields, "failed to read RAID Count from disk norvblock"};
constexpr FieldGroup kLimit = {kLimitFields, "failed to read raidGroupLimit from disk norvblock"};
constexpr FieldGroup kCacheHead = {kCacheHeadFields, "failed to read cache info from disk norvblock"};
constexpr FieldGroup kCache = {kCacheFields, "failed to read cache info from disk norvblock"};

// Reads ahead by whole pages, as the kernel does, so that a usual disk costs one call.
struct Reader {
    explicit Reader(int from) : fd(from) {}
    int fd;
    size_t at = 0, filled = 0;
    uint8_t ahead[4096]; // from `at` to `filled`
};

enum class Taken { kAll, kEnd, kError }; // kEnd: the device ends before that

Taken bytes_take(Reader *reader, uint8_t *bytes, size_t size)
{
    while (size > 0) {
        if (reader->at == reader->filled) {
            const ssize_t count = NLIBCRead(reader->fd, reader->ahead, sizeof(reader->ahead));
            if (count <= 0)
                return count == 0 ? Taken::kEnd : Taken::kError;
            reader->at = 0;
            reader->filled = static_cast<size_t>(count);
        }
        const size_t piece = std::min(size, reader->filled - reader->at);
        memcpy(bytes, reader->ahead + reader->at, piece);
        reader->at += piece;
        bytes += piece;
        size -= piece;
    }
    return Taken::kAll;
}

// The oldest systems wrote numbers in the order of their processor, and these are small: a first byte of 0 tells the
// order of now.
uint64_t number_load(const uint8_t *bytes, size_t size, bool may_be_little)
{
    const bool is_little = may_be_little && bytes[0] != 0;
    uint64_t value = 0;
    for (size_t i = 0; i < size; i++)
        value = value << 8 | bytes[is_little ? size - 1 - i : i];
    return value;
}

// Reads those of the fields that the version has. Returns 0; -1, logged.
int fields_take(Reader *reader, const FieldGroup &group, uint32_t version, void *record)
{
    for (const BlockField &field : group.fields) {
        uint8_t bytes[256];
        if (field.since > version)
            continue;
        if (bytes_take(reader, bytes, field.disk_bytes) != Taken::kAll) {
            NORV_LOG(LOG_ERR, "%s", group.trouble);
            return fail(kErrRead);
        }
        char *member = static_cast<char *>(record) + field.member;
        if (is_text(field)) {
            memcpy(member, bytes, field.memory_bytes - 1);
            member[field.memory_bytes - 1] = '\0';
            continue;
        }
        const uint64_t number = number_load(bytes, field.disk_bytes, version == 1);
        const auto word = static_cast<uint32_t>(number);
        if (field.memory_bytes == sizeof(word))
            memcpy(member, &word, sizeof(word));
        else
            memcpy(member, &number, sizeof(number));
    }
    return 0;
}

// A number of a block's head, in either order.
bool head_word_take(Reader *reader, uint32_t *word)
{
    uint8_t bytes[sizeof(*word)];
    if (bytes_take(reader, bytes, sizeof(bytes)) != Taken::kAll)
        return false;
    *word = static_cast<uint32_t>(number_load(bytes, sizeof(bytes), true));
    return true;
}

int raid_list_read(Reader *reader, uint32_t version, NORVBlock *block)
{
    ListHead head = {};
    if (fields_take(reader, kRaidHead, version, &head) != 0)
        return -1;
    if (head.count > kBlockRaidsMax) {
        NORV_LOG(LOG_ERR, "invalid raid count");
        return fail(kErrBadFormat);
    }
    for (uint32_t i = 0; i < head.count; i++) {
        RaidIdentifier identifier;
        if (fields_take(reader, kRaid, version, &identifier) != 0)
            return -1;
        if (NLIBCSzListPush(&block->raidList, identifier.text) < 0)
            return -1;
    }
    return 0;
}

BlockCache *cache_make(const StoredCache &stored)
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
int old_cache_read(Reader *reader, uint32_t version, NORVBlock *block)
{
    StoredCache stored = {};
    stored.mode = kBlockCacheFreshMode;
    if (fields_take(reader, kOldCache, version, &stored) != 0)
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

int body_read(Reader *reader, uint32_t version, NORVBlock *block)
{
    if (fields_take(reader, kSpace, version, block) != 0)
        return -1;
    if (old_cache_read(reader, version, block) != 0)
        return -1;
    if (fields_take(reader, kLvm, version, block) != 0)
        return -1;
    if (raid_list_read(reader, version, block) != 0)
        return -1;
    if (fields_take(reader, kLimit, version, block) != 0)
        return -1;
    if (version >= kLimitFields[0].since && !limit_is_known(*block))
        text_cut(block->raidGroupLimit, kRaidGroupUnknown);
    return 0;
}

// Reads the list of caches. It replaces the first block's record where the two must agree, and comes behind it
// elsewhere; where they do not agree the list is left alone.
int cache_list_read(Reader *reader, NORVBlock *block)
{
    ListHead head;
    if (fields_take(reader, kCacheHead, kSpaceBlockNewVersion, &head) != 0)
        return -1;
    if (head.count > kBlockCachesMax) {
        NORV_LOG(LOG_ERR, "invalid cache count");
        return fail(kErrBadFormat);
    }
    const BlockCache *old = block->spaceType != kSpaceTypeUnchecked ? block->cacheInfo : nullptr;
    UniqueBlockCache list;
    BlockCache **link = list.address();
    for (uint32_t i = 0; i < head.count; i++) {
        StoredCache stored;
        if (fields_take(reader, kCache, kSpaceBlockNewVersion, &stored) != 0)
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
int magic_take(Reader *reader, bool is_optional, char (&magic)[64])
{
    const Taken taken = bytes_take(reader, reinterpret_cast<uint8_t *>(magic), sizeof(magic));
    if (taken == Taken::kAll)
        return memcmp(magic, kMagic, sizeof(kMagic)) == 0 ? 1 : 0;
    if (taken == Taken::kEnd && is_optional)
        return 0;
    NORV_LOG(LOG_ERR, "Fail to read norv block magic");
    return fail(kErrRead);
}

void head_store(const char (&magic)[64], uint32_t version, NORVBlock *block)
{
    memcpy(block->magic, magic, sizeof(magic) - 1);
    block->version = version;
}

int version_take(Reader *reader, const char *name, uint32_t *version)
{
    if (head_word_take(reader, version))
        return 0;
    NORV_LOG(LOG_ERR, "failed to read version %s", name);
    return fail(kErrRead);
}

int first_block_read(Reader *reader, const char *name, NORVBlock *block)
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
int second_block_read(Reader *reader, const char *name, NORVBlock *block)
{
    char magic[64];
    uint32_t version, capability, feature;
    const int found = magic_take(reader, true, magic);
    if (found != 1)
        return found;
    if (version_take(reader, name, &version) != 0)
        return -1;
    if (!head_word_take(reader, &capability)) {
        NORV_LOG(LOG_ERR, "failed to read capability %s", name);
        return fail(kErrRead);
    }
    if (!head_word_take(reader, &feature)) {
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
    Reader reader(fd);
    int result = first_block_read(&reader, name, block);
    if (result == 1 && second_block_read(&reader, name, block) != 0)
        result = -1;
    if (result != 1)
        space_block_reset(block);
    return result;
}

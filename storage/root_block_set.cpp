#include <cstring>
#include <fcntl.h>

#include "disk/disk.h"
#include "lib/report.h"
#include "storage/root_block.h"
#include "storage/root_block_op.h"

// Writes the header of a copy, unless its place is taken. Returns 0; -1.
static int header_write(const char *path, int copy, const RootHeader &header)
{
    uint64_t offset = 0;
    if (root_block_header_offset_get(path, copy, &offset) != 1)
        return -1;
    const int is_free = root_block_place_check(path, offset);
    if (is_free < 0)
        return -1;
    if (is_free == 0) {
        NORV_LOG(LOG_WARNING,
                 "The offset %llu of %s is already been used, so we should not write backup root block at it.",
                 static_cast<unsigned long long>(offset), path);
        return 0;
    }
    const UniqueFd fd(open(path, O_WRONLY | O_CLOEXEC));
    if (!fd)
        return fail(kErrOpen);
    return root_fields_write(fd.get(), path, offset, kRootHeaderFields, 1, &header);
}

// Writes one copy, its body first: until the header follows, a disk without a block still has none. Returns 0; -1.
static int copy_write(const char *disk, int copy, uint64_t body_at, const RootBlock *block)
{
    RootHeader header = {.magic = {}, .version = kRootBlockVersion, .dataOffset = body_at};
    memcpy(header.magic, kRootBlockMagic, sizeof(kRootBlockMagic));
    RootBlockOpInfo info;
    if (root_block_op_info_get(disk, &header, copy, &info) != 0)
        return -1;
    const int is_free = root_block_place_check(info.path, info.offset);
    if (is_free < 0)
        return -1;
    if (is_free == 0) {
        NORV_LOG(LOG_WARNING, "Invalid offset %llu on %s with %s root block.",
                 static_cast<unsigned long long>(info.offset), info.path,
                 copy == kRootBlockPrimary ? "primary" : "backup");
        return fail(kErrNoneFoundD9);
    }
    return root_block_write(info, block) == 0 ? header_write(info.path, copy, header) : -1;
}

int root_block_set(const char *disk, const RootBlock *block)
{
    if (disk == nullptr || block == nullptr)
        return fail(kErrBadParameter);
    char whole[PATH_MAX];
    if (disk_partition_num_remove(disk, whole, sizeof(whole)) != 0)
        return fail(kErrChild);
    if (copy_write(whole, kRootBlockPrimary, kRootBlockBodyAt, block) != 0) {
        NORV_LOG(LOG_ERR, "Fail to set primary root block on %s[0x%04X %s:%d]", whole, NORV_ERR_ARGS);
        return -1;
    }
    uint64_t body_at = 0;
    if (!is_disk_offset_avail(whole) || root_block_backup_offset_get(whole, kRootBlockBackupBody, &body_at) != 1)
        return 0; // the primary alone counts
    if (copy_write(whole, kRootBlockBackup, body_at, block) != 0)
        NORV_LOG(LOG_WARNING, "Fail to set backup root block on %s[0x%04X %s:%d]", whole, NORV_ERR_ARGS);
    return 0;
}

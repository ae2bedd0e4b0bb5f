#include "storage/root_block_op.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>

#include "disk/disk.h"
#include "lib/report.h"

int root_block_header_offset_get(const char *disk, int copy, uint64_t *offset)
{
    if (copy == kRootBlockBackup)
        return root_block_backup_offset_get(disk, kRootBlockBackupHeader, offset);
    *offset = kRootBlockHeaderAt;
    return 1;
}

int root_block_header_read(int fd, uint64_t offset, RootHeader *header)
{
    if (root_fields_read(fd, offset, kRootHeaderFields, 1, header) != 0)
        return -1;
    const bool is_valid = memcmp(header->magic, kRootBlockMagic, sizeof(kRootBlockMagic)) == 0 &&
                          header->version != 0 && header->dataOffset > kRootBlockHeaderAt;
    return is_valid ? 1 : 0;
}

int root_block_op_info_get(const char *disk, const RootHeader *given, int copy, RootBlockOpInfo *info)
{
    if (copy != kRootBlockPrimary && copy != kRootBlockBackup) {
        NORV_LOG(LOG_ERR, "Invalid type %d on %s", copy, disk);
        return fail(kErrBadParameter);
    }
    if (given != nullptr && (given->version < 1 || given->version > kRootBlockVersion)) {
        NORV_LOG(LOG_ERR, "Unrecognized root block version [%d], for [%s] errno=%m", static_cast<int>(given->version),
                 disk);
        return fail(kErrBadParameter);
    }
    if (disk_device_path_get(disk, info->path, sizeof(info->path)) < 0)
        return -1;
    if (!info->fd)
        info->fd.reset(open(info->path, O_RDWR | O_CLOEXEC));
    if (!info->fd)
        return fail(kErrOpen);
    if (given != nullptr) {
        info->version = given->version;
        info->offset = given->dataOffset;
        return 0;
    }
    uint64_t header_at = 0;
    const int has_place = root_block_header_offset_get(info->path, copy, &header_at);
    RootHeader header;
    const int is_valid = has_place == 1 ? root_block_header_read(info->fd.get(), header_at, &header) : has_place;
    if (is_valid == 1) {
        info->version = std::min(header.version, kRootBlockVersion);
        info->offset = header.dataOffset;
    } else {
        info->version = kRootBlockVersion;
        info->offset = header_at + (kRootBlockBodyAt - kRootBlockHeaderAt);
    }
    return is_valid;
}

int root_block_read(const RootBlockOpInfo &info, RootBlock *block)
{
    RootBody body;
    if (root_fields_read(info.fd.get(), info.offset, kRootBodyFields, info.version, &body) != 0 ||
        root_block_member_set(&block->layout, body.layout) != 0 ||
        (info.version >= 2 && root_block_member_set(&block->extraVersion, body.extraVersion) != 0) ||
        (info.version >= 3 && root_block_member_set(&block->capability, body.capability) != 0))
        return -1;
    return 0;
}

int root_block_write(const RootBlockOpInfo &info, const RootBlock *block)
{
    if (info.version >= 3 && block->capability == nullptr)
        return fail(kErrBadParameter);
    RootBody body = {};
    if (block->layout != nullptr)
        body.layout = *block->layout;
    if (block->extraVersion != nullptr)
        body.extraVersion = *block->extraVersion;
    if (block->capability != nullptr)
        body.capability = *block->capability;
    return root_fields_write(info.fd.get(), info.path, info.offset, kRootBodyFields, info.version, &body);
}

int root_block_clean(const RootBlockOpInfo &info)
{
    const RootBody empty = {};
    return root_fields_write(info.fd.get(), info.path, info.offset, kRootBodyFields, info.version, &empty);
}

int root_block_place_check(const char *disk, uint64_t offset)
{
    NLIBCErrSet(kErrNone, __FILE_NAME__, __LINE__);
    if (is_disk_offset_avail(disk, offset))
        return 1;
    return NLIBCErrGet() == kErrOutOfMemory ? -1 : 0;
}

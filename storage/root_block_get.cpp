#include "disk/disk.h"
#include "lib/report.h"
#include "storage/root_block.h"
#include "storage/root_block_op.h"

int root_block_get(const char *disk, RootBlock **block)
{
    if (disk == nullptr || block == nullptr || *block != nullptr)
        return fail(kErrBadParameter);
    char whole[PATH_MAX];
    if (disk_partition_num_remove(disk, whole, sizeof(whole)) != 0)
        return fail(kErrChild);
    UniqueRootBlock read(root_block_alloc());
    if (!read)
        return -1;
    RootBlockOpInfo info;
    int copy = 0;
    for (const int tried : {kRootBlockPrimary, kRootBlockBackup}) {
        const int is_valid = root_block_op_info_get(whole, nullptr, tried, &info);
        if (is_valid < 0) {
            NORV_LOG(LOG_ERR, "Failed to get op info for [%s][0x%04X %s:%d]", whole, NORV_ERR_ARGS);
            return -1;
        }
        if (is_valid == 1) {
            copy = tried;
            break;
        }
    }
    const int is_free = copy != 0 ? root_block_place_check(whole, info.offset) : 0;
    if (is_free < 0)
        return -1; // "no block" would have the caller write an empty one
    copy = is_free == 1 ? copy : 0;
    if (copy != 0 && root_block_read(info, read.get()) != 0) {
        NORV_LOG(LOG_ERR, "Fail to read root block for [%s]", whole);
        return -1;
    }
    *block = read.release();
    return copy;
}

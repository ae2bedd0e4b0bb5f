#include <fcntl.h>

#include "disk/disk.h"
#include "lib/report.h"
#include "storage/partition.h"
#include "storage/space_block.h"

int space_disk_block_get(const char *disk, int64_t offset, NORVBlock *block)
{
    if (block == nullptr)
        return fail(kErrBadParameter);
    space_block_reset(block);
    const int type = external_disk_port_check(disk);
    if (type == kDiskPortUnknown || type == kDiskPortBoot) {
        NORV_LOG(LOG_ERR, "bad paramters: disk path: %s", disk != nullptr ? disk : "(null)");
        return fail(kErrBadParameter);
    }
    char path[64];
    if (disk_device_path_get(disk, path, sizeof(path)) < 0)
        return -1;
    const UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        NORV_LOG(LOG_ERR, "Failed to open path: %s, errno=%m", path);
        return fail(kErrOpen);
    }
    return space_block_read(fd.get(), path, offset, block);
}

namespace
{

// The disk of a partition, and where its partition 1 begins.
struct Place {
    char disk[64];
    uint64_t start; // sectors
};

// Returns 1; 0 when the disk has no partition 1, `place->disk` is set all the same; -1.
int place_get(const char *partition, Place *place)
{
    uint64_t size;
    if (disk_partition_num_remove(partition, place->disk, sizeof(place->disk)) != 0)
        return -1;
    return partition_start_size_get(place->disk, 1, &place->start, &size);
}

} // namespace

int space_disk_block_get(const char *partition, NORVBlock *block)
{
    if (block == nullptr)
        return fail(kErrBadParameter);
    space_block_reset(block);
    Place place;
    const int found = place_get(partition, &place);
    return found == 1 ? space_disk_block_get(place.disk, space_block_offset(place.start), block) : found;
}

int space_disk_block_get_at(const char *partition, int64_t offset, NORVBlock *block)
{
    if (block == nullptr || (offset != kSpaceBlockOffset && offset != kSpaceBlockOldOffset))
        return fail(kErrBadParameter);
    space_block_reset(block);
    char disk[64];
    if (disk_partition_num_remove(partition, disk, sizeof(disk)) != 0)
        return -1;
    return space_disk_block_get(disk, offset, block);
}

int space_disk_block_exists(const char *partition)
{
    const UniqueSpaceBlock block(space_block_alloc());
    Place place;
    const int found = block ? place_get(partition, &place) : -1;
    if (found < 0)
        return -1;
    const int64_t offset = found == 1 ? space_block_offset(place.start) : kSpaceBlockOffset;
    return space_disk_block_get(place.disk, offset, block.get());
}

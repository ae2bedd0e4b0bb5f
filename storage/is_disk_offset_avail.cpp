#include <algorithm>
#include <cerrno>

#include "disk/disk.h"
#include "lib/file.h"
#include "lib/report.h"
#include "storage/root_block.h"
#include "storage/root_block_op.h"

namespace
{

constexpr uint64_t kSectorBytes = 512;
constexpr uint64_t kRoomSectors = 500;  // a block before the first partition needs as many
constexpr uint64_t kModernStart = 2048; // older layouts begin earlier, too close for a block
constexpr int kListBytes = 4096;

// Every class but USB.
constexpr int kContainers =
    kDiskContainerInternal | kDiskContainerExpansion | kDiskContainerEsata | kDiskContainerCache | kDiskContainerSystem;
static_assert(kContainers == 0xab);

// Adds a partition; a whole disk takes nothing. Returns 0; -1 when it cannot be told.
int taken_add(const char *path, PartitionsTaken *taken)
{
    char disk[64];
    const int number = disk_partition_num_get(path, disk, sizeof(disk));
    if (number <= 0)
        return number;
    PartitionExtent extent;
    const int64_t size = PartitionInfoGet(number, disk, &extent.start, nullptr);
    if (size < 0)
        return -1;
    extent.size = static_cast<uint64_t>(size);
    taken->add(extent);
    return 0;
}

// Returns 0; -1 when a partition cannot be told.
int partitions_walk(const char *disk, PartitionsTaken *taken)
{
    UniqueList paths(NLIBCSzListAlloc(kListBytes));
    const PartitionFilter filter = {disk_bare_name(disk), kContainers};
    if (!paths || partition_path_enum(&filter, paths.address()) < 0)
        return -1;
    for (int i = 0; i < paths.get()->nItem; i++)
        if (file_is_block_device(paths.get()->items[i]) && taken_add(paths.get()->items[i], taken) != 0)
            return -1;
    return 0;
}

} // namespace

void PartitionsTaken::add(const PartitionExtent &extent)
{
    uint64_t end = 0;
    if (__builtin_add_overflow(extent.start, extent.size, &end))
        end = UINT64_MAX;
    lowest_start = std::min(lowest_start, extent.start);
    highest_end = std::max(highest_end, end);
}

bool root_block_place_is_free(const PartitionsTaken &taken, uint64_t offset)
{
    const uint64_t sector = offset / kSectorBytes;
    return taken.lowest_start == UINT64_MAX || sector > taken.highest_end ||
           (taken.lowest_start >= kModernStart && sector + kRoomSectors <= taken.lowest_start);
}

bool is_disk_offset_avail(const char *disk, uint64_t offset)
{
    PartitionsTaken taken;
    return disk != nullptr && partitions_walk(disk, &taken) == 0 && root_block_place_is_free(taken, offset);
}

bool is_disk_offset_avail(const char *disk)
{
    uint64_t offset = 0;
    if (disk == nullptr || root_block_backup_offset_get(disk, kRootBlockBackupHeader, &offset) != 1)
        return false;
    if (is_disk_offset_avail(disk, offset))
        return true;
    NORV_LOG(LOG_WARNING, "The offset %llu of %s is already been used, so we should not use backup root block at it.",
             static_cast<unsigned long long>(offset), disk);
    return false;
}

int root_block_backup_offset_get(const char *disk, uint64_t from_end, uint64_t *offset)
{
    uint64_t sectors = 0;
    if (disk == nullptr || offset == nullptr)
        return fail(kErrBadParameter);
    if (disk_size_get(disk, &sectors) < 0)
        return NLIBCErrGet() == kErrSystemCall && errno == ENOTTY ? 0 : -1; // an image of a disk in a plain file
    if (sectors > UINT64_MAX / kSectorBytes || sectors * kSectorBytes < kRootBlockBackupHeader)
        return 0;
    *offset = sectors * kSectorBytes - from_end;
    return 1;
}

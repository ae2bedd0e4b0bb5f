#include "storage/partition.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "disk/disk.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "storage/partition_layout.h"
#include "storage/space.h"

namespace
{

constexpr int kRoot = 1, kSwap = 2, kData = 3; // partition numbers

// Runs the tool for partition `n`: `gap` sectors behind what is before it, or with kPartitionToTheEnd to the end of the
// disk. Returns 0; -1.
int partition_make(const char *path, int n, uint64_t gap, uint64_t size, uint64_t type)
{
    char number_word[16], gap_word[32], size_word[32], type_word[32];
    snprintf(number_word, sizeof(number_word), "-N%d", n);
    snprintf(gap_word, sizeof(gap_word), "-j%" PRIu64, gap);
    snprintf(size_word, sizeof(size_word), "-z%" PRId64, static_cast<int64_t>(size)); // "-z-1" is the tool's word
    snprintf(type_word, sizeof(type_word), "-t%" PRIx64, type);
    const int status = n == kData ? space_execl(kPartitionTool, number_word, "", "-uS", "-q", "-f", gap_word, size_word,
                                                type_word, "-F", path, nullptr)
                                  : space_execl(kPartitionTool, number_word, "-uS", "-q", "-f", gap_word, size_word,
                                                type_word, "-F", path, nullptr);
    if (status == 0)
        return 0;
    if (n == kRoot) {
        NORV_LOG(LOG_ERR, "Failed to partition disk %s, err=%d", path, status);
        return fail(kErrChild);
    }
    char command[256];
    snprintf(command, sizeof(command), "%s %s%s -uS -q -f %s %s %s -F %s", kPartitionTool, number_word,
             n == kData ? " " : "", gap_word, size_word, type_word, path);
    NORV_LOG(LOG_ERR, "Failed to [%s], err=%d", command, status);
    return fail(kErrChild);
}

// The version that new partitions of a disk get when the caller names none. Returns 0; -1.
int version_choose(const char *disk, bool raid, int *version)
{
    return PartitionLayoutDetect(disk, raid, version) == 1 ? 0 : partition_layout_get_max(version, false);
}

} // namespace

int partition_create(const char *disk, int what, const int *version)
{
    if (disk == nullptr || *disk == '\0' || (what & kPartitionAll) == 0)
        return fail(kErrBadParameter);
    char path[64];
    if (disk_device_path_get(disk, path, sizeof(path)) < 0)
        return -1;
    if ((what & kPartitionSystem) != 0 && strstr(disk, "sysd") != nullptr && NLIBCConfIsHdSeries()) {
        const PartitionExtent &fixed = kPartitionHdSeriesSystem;
        return partition_table_add(path) == 0 ? partition_make(path, kRoot, fixed.start, fixed.size, fixed.fsId) : -1;
    }
    const bool raid = conf_supportraid();
    int chosen = version != nullptr ? *version : kPartitionVersionModel;
    if (version == nullptr && version_choose(disk, raid, &chosen) != 0) {
        NORV_LOG(LOG_ERR, "Failed to get partition version");
        return -1;
    }
    const PartitionLayout *layout = partition_layout_find(chosen, raid);
    if (layout == nullptr) {
        NORV_LOG(LOG_ERR, "Failed to get partition layout: version=%d", chosen);
        return -1;
    }
    // The types are the model's, also where a row of the table has others.
    const uint64_t type = raid ? kPartitionTypeRaid : kPartitionTypeLinux;
    if ((what & kPartitionData) != 0)
        return partition_make(path, kData, layout->dataGap, kPartitionToTheEnd, type);
    if (partition_table_add(path) != 0 ||
        partition_make(path, kRoot, layout->partition[0].start, layout->sysSize, type) != 0)
        return -1;
    return partition_make(path, kSwap, 0, layout->swapSize, raid ? kPartitionTypeRaid : kPartitionTypeSwap);
}

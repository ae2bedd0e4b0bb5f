#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "lib/report.h"
#include "storage/raid_parts.h"

namespace
{

constexpr unsigned long kArrayStatus = 0x80040961;

struct StatusRow {
    RaidStatus status;
    int32_t crash_reason;
};
constexpr StatusRow kStatusOfWord[] = {{kRaidNormal, 0}, {kRaidDegraded, 0}, {kRaidCrashed, 1}, {kRaidCrashed, 2}};

struct MemberCount {
    int good, rebuilding, failed;
};

MemberCount members_count(const RaidDisk *disk)
{
    MemberCount count = {};
    for (; disk != nullptr; disk = disk->next) {
        count.good += disk->state == kRaidDiskNormal;
        count.rebuilding += disk->state == kRaidDiskRebuilding;
        count.failed += disk->state == kRaidDiskFailed || disk->state == kRaidDiskError;
    }
    return count;
}

// Whether so many lost places are more than a level can do without. RAID 10 depends on which ones, and the kernel alone
// knows.
bool is_lost(int32_t level, const MemberCount &count, int lost_places)
{
    switch (level) {
    case kRaidLevel0:
    case kRaidLevelLinear:
        return count.failed > 0;
    case kRaidLevel1:
        return count.good == 0;
    case kRaidLevel5:
    case kRaidLevelF1:
        return lost_places > 1;
    case kRaidLevel6:
        return lost_places > 2;
    default:
        return false;
    }
}

// The word of the status request, from sysfs and the members. Returns 1; 0 when the array is gone by now; -1 with
// 0x8000.
int word_of_sysfs(const RaidInfo &info, int32_t *word)
{
    char state[32], degraded[32] = "0"; // the latter is there for levels with redundancy
    const int read = raid_sysfs_get(info.path, "array_state", state, sizeof(state));
    if (read > 0)
        return 0;
    if (read < 0 || raid_sysfs_get(info.path, "degraded", degraded, sizeof(degraded)) < 0)
        return fail(kErrRaidRead);
    const MemberCount count = members_count(info.disks.get());
    int lost_places = count.rebuilding + count.failed;
    if (info.level != kRaidLevel1) // mirrors are made with places for disks to come, which nothing is lost with
        lost_places = std::max(lost_places, atoi(degraded));
    const bool stopped = strcmp(state, "inactive") == 0 || strcmp(state, "broken") == 0;
    if (stopped || is_lost(info.level, count, lost_places))
        *word = 2;
    else
        *word = lost_places > 0 ? 1 : 0;
    return 1;
}

} // namespace

int raid_status_read(int fd, RaidInfo *info)
{
    int32_t word = 0;
    int result = raid_request(fd, kArrayStatus, &word);
    if (result < 0 && raid_request_is_missing())
        result = word_of_sysfs(*info, &word);
    if (result != 1)
        return result;
    if (word < 0 || word >= static_cast<int32_t>(std::size(kStatusOfWord))) {
        NORV_LOG(LOG_DEBUG, "unknown raid status, status=%d", word);
        return fail(kErrRaidRead);
    }
    info->status = kStatusOfWord[word].status;
    info->crashReason = kStatusOfWord[word].crash_reason;
    return 1;
}

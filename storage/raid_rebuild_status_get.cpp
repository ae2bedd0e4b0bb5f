#include <cinttypes>
#include <cstdlib>

#include "lib/report.h"
#include "storage/raid_parts.h"

namespace
{

constexpr unsigned long kRebuildStatus = 0x80180960;

struct RebuildWords {
    uint64_t running, done, total;
};

// What the request would tell, from sysfs. Returns 1; -1 with 0x8000.
int words_of_sysfs(const char *path, RebuildWords *words)
{
    const int action = raid_sync_action_get(path);
    if (action < 0)
        return fail(kErrRaidRead);
    *words = {};
    if (action == kSyncIdle || action == kSyncFrozen)
        return 1;
    char completed[64];
    if (raid_sysfs_get(path, "sync_completed", completed, sizeof(completed)) != 0)
        return fail(kErrRaidRead);
    words->running = 1;
    raid_sync_completed_parse(completed, &words->done, &words->total); // zeros while it waits
    return 1;
}

int64_t remaining_seconds(const char *path, const RebuildWords &words)
{
    char text[32];
    if (words.total <= words.done || raid_sysfs_get(path, "sync_speed", text, sizeof(text)) != 0)
        return 0;
    const long long kib_per_second = atoll(text);
    return kib_per_second <= 0 ? 0 : static_cast<int64_t>((words.total - words.done) / 2) / kib_per_second;
}

} // namespace

void raid_sync_completed_parse(const char *text, uint64_t *done, uint64_t *total)
{
    if (sscanf(text, "%" SCNu64 " / %" SCNu64, done, total) != 2)
        *done = *total = 0; // "none" or "delayed"
}

int raid_rebuild_read(int fd, const char *path, RaidRebuildStatus *status)
{
    RebuildWords words = {};
    int result = raid_request(fd, kRebuildStatus, &words);
    if (result < 0 && raid_request_is_missing())
        result = words_of_sysfs(path, &words);
    if (result != 1)
        return result;
    *status = {.state = kRebuildIdle, .done = words.done, .total = words.total, .remainingSeconds = 0};
    if (words.running == 0)
        return 1;
    status->state = words.done == 0 ? kRebuildWaiting : kRebuildRunning;
    if (status->state == kRebuildRunning)
        status->remainingSeconds = remaining_seconds(path, words);
    return 1;
}

int raid_rebuild_status_get(const char *path, RaidRebuildStatus *status)
{
    if (status == nullptr)
        return fail(kErrBadParameter);
    UniqueFd fd;
    mdu_array_info_t array = {};
    const int found = raid_open(path, &fd, &array);
    return found == 1 ? raid_rebuild_read(fd.get(), path, status) : found;
}

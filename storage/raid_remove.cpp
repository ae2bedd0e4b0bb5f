#include <cstring>
#include <unistd.h>

#include "lib/report.h"
#include "lib/text.h"
#include "storage/raid_parts.h"

static constexpr int kStopTries = 3;
static constexpr int kScrubbedLevels = kRaidLevel1 | kRaidLevel5 | kRaidLevel6 | kRaidLevel10 | kRaidLevelF1;

static int stop_patiently(const char *path)
{
    for (int tries = 1; raid_stop(path) != 0; tries++) {
        if (tries == kStopTries) {
            NORV_LOG(LOG_DEBUG, "Reach RAID stop retry limit");
            return -1;
        }
        NORV_LOG(LOG_DEBUG, "Fail to stop [%s], try again", path);
        sleep(1);
    }
    return 0;
}

int RaidRemove(const RaidInfo &info)
{
    char uuid[sizeof(info.uuid)];
    text_cut(uuid, text_view(info.uuid));
    if (uuid[0] == '\0' && raid_uuid_get(info.path, uuid, sizeof(uuid)) != 1) // only a running array has members
        uuid[0] = '\0';
    if (stop_patiently(info.path) != 0)
        return -1;
    if (uuid[0] != '\0') {
        NORV_LOG(LOG_WARNING, "[Info] clean RAID superblock of %s", info.path);
        if (raid_clean_superblock_by_uuid(uuid) != 0)
            return -1;
    }
    const bool is_system = strcmp(info.path, "/dev/md0") == 0 || strcmp(info.path, "/dev/md1") == 0;
    char name[32];
    snprintf(name, sizeof(name), "md%d", info.number);
    if ((info.level & kScrubbedLevels) != 0 && !is_system && raid_scrubbing_remove(name) != 0)
        NORV_LOG(LOG_DEBUG, "Scrubbing:Failed to remove section '%s'", name);
    return 0;
}

#include <cstring>

#include "lib/report.h"
#include "storage/raid.h"

namespace
{

struct ActionRow {
    const char *word;
    RaidSyncAction action;
};
constexpr ActionRow kActions[] = {
    {"idle", kSyncIdle},   {"frozen", kSyncFrozen}, {"reshape", kSyncReshape}, {"resync", kSyncResync},
    {"check", kSyncCheck}, {"repair", kSyncRepair}, {"recover", kSyncRecover},
};

} // namespace

int raid_sync_action_get(const char *path)
{
    char word[32];
    const int read = raid_sysfs_get(path, "sync_action", word, sizeof(word));
    if (read != 0)
        return read < 0 ? -1 : static_cast<int>(kSyncIdle); // a level without redundancy has no such file
    for (const ActionRow &row : kActions)
        if (strcmp(row.word, word) == 0)
            return row.action;
    return fail(kErrBadFormat);
}

#include <cstdlib>
#include <cstring>
#include <glob.h>

#include "autocleanup/glob_matches.h"
#include "disk/disk.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"
#include "storage/raid_parts.h"

namespace
{

constexpr char kMemberPrefix[] = "dev-";

struct StateRow {
    const char *word;
    RaidDiskState state;
};
// The first row whose word is among those of a member decides.
constexpr StateRow kStates[] = {
    {"faulty", kRaidDiskFailed},
    {"error", kRaidDiskError},
    {"in_sync", kRaidDiskNormal},
    {"spare", kRaidDiskRebuilding}, // without a place in the array: a spare
};

bool words_hold(std::string_view words, std::string_view wanted)
{
    while (!words.empty()) {
        const std::string_view word = words.substr(0, words.find(','));
        if (text_strip(word) == wanted)
            return true;
        words.remove_prefix(word.size() < words.size() ? word.size() + 1 : word.size());
    }
    return false;
}

// Reads the member that stands below the array's folder as "dev-sda1". Returns 0; -1.
int member_read(const char *path, const char *entry, RaidDisk *disk)
{
    char name[128], text[128];
    if (NLIBCStrSnprintf(disk->path, sizeof(disk->path), "/dev/%s", entry + strlen(kMemberPrefix)) < 0 ||
        NLIBCStrSnprintf(name, sizeof(name), "%s/state", entry) < 0 ||
        raid_sysfs_get(path, name, text, sizeof(text)) != 0)
        return -1;
    disk->state = raid_disk_state_parse(text);
    disk->slot = -1;
    if (NLIBCStrSnprintf(name, sizeof(name), "%s/slot", entry) < 0)
        return -1;
    if (raid_sysfs_get(path, name, text, sizeof(text)) != 0)
        return disk->state == kRaidDiskRebuilding ? -1 : 0; // only there does it decide
    if (strstr(text, "none") == nullptr)
        disk->slot = atoi(text);
    else if (disk->state == kRaidDiskRebuilding)
        disk->state = kRaidDiskSpare;
    return 0;
}

} // namespace

RaidDiskState raid_disk_state_parse(const char *words)
{
    for (const StateRow &row : kStates)
        if (words_hold(words, row.word))
            return row.state;
    return kRaidDiskNormal;
}

void raid_disks_free(RaidDisk *disks)
{
    while (disks != nullptr) {
        RaidDisk *next = disks->next;
        free(disks);
        disks = next;
    }
}

int raid_members_get(const char *path, UniqueRaidDisks *disks)
{
    char pattern[64];
    const int number = raid_path_number(path);
    if (number < 0 || NLIBCStrSnprintf(pattern, sizeof(pattern), "/sys/block/md%d/md/dev-*", number) < 0)
        return -1;
    GlobMatches matches;
    const int globbed = glob(pattern, 0, nullptr, &matches.found);
    if (globbed != 0 && globbed != GLOB_NOMATCH)
        return fail(globbed == GLOB_NOSPACE ? kErrOutOfMemory : kErrRead);
    for (size_t i = 0; i < matches.found.gl_pathc; i++) {
        UniqueRaidDisks disk(static_cast<RaidDisk *>(calloc(1, sizeof(RaidDisk))));
        if (!disk)
            return fail(kErrOutOfMemory);
        const char *entry = base_name(matches.found.gl_pathv[i]);
        if (member_read(path, entry, disk.get()) != 0) {
            NORV_LOG(LOG_DEBUG, "Failed to read member %s of %s[0x%04X %s:%d]", entry, path, NORV_ERR_ARGS);
            continue;
        }
        disk.get()->next = disks->release();
        *disks = std::move(disk);
    }
    return 0;
}

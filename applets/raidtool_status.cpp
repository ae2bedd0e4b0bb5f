#include <cstdio>
#include <cstdlib>

#include "applets/raidtool.h"
#include "lib/text.h"
#include "storage/raid.h"

namespace
{

struct Word {
    int32_t value;
    const char *text;
};
constexpr Word kLevels[] = {
    {kRaidLevel0, "RAID 0"},   {kRaidLevel1, "RAID 1"},    {kRaidLevel5, "RAID 5"},   {kRaidLevel6, "RAID 6"},
    {kRaidLevel10, "RAID_10"}, {kRaidLevelLinear, "JBOD"}, {kRaidLevelF1, "RAID_F1"},
};
constexpr Word kStatuses[] = {{kRaidNormal, "NORMAL"}, {kRaidDegraded, "DEGRADE"}, {kRaidCrashed, "CRASHED"}};
constexpr Word kMemberStates[] = {
    {kRaidDiskNormal, "Normal"},
    {kRaidDiskFailed, "Failed"},
    {kRaidDiskError, "Failed(Which make RAID Crashed)"},
    {kRaidDiskRebuilding, "Rebuilding"},
    {kRaidDiskSpare, "Spare Disk"},
    {kRaidDiskNone, "None"},
};

template <size_t kRows> const char *word_of(const Word (&words)[kRows], int32_t value)
{
    for (const Word &word : words)
        if (word.value == value)
            return word.text;
    return "";
}

using Printed = unsigned long long; // what %llu takes
using ShortWord = char[16];         // longer words are printed cut

void rebuild_word(const RaidRebuildStatus &rebuild, ShortWord &word)
{
    char whole[64] = "None";
    if (rebuild.state == kRebuildRunning)
        snprintf(whole, sizeof(whole), "Progressing...[%llu/%llu]", Printed{rebuild.done}, Printed{rebuild.total});
    else if (rebuild.state == kRebuildWaiting)
        text_cut(whole, "Waiting...");
    text_cut(word, whole);
}

} // namespace

int raidtool_status(int argc, char *argv[])
{
    if (argc < 3)
        return raidtool_parameters_missing();
    char device[32];
    snprintf(device, sizeof(device), "/dev/md%d", atoi(argv[2]));
    RaidInfo info = {};
    if (raid_info_get(device, &info) < 1) {
        printf("RAID %s is not found\n", device);
        return 1;
    }
    ShortWord rebuild, state;
    rebuild_word(info.rebuild, rebuild);
    printf("%s is running, status: %s, rebuilding: %s\n", device, word_of(kStatuses, info.status), rebuild);
    printf("Device level: %s\n", word_of(kLevels, info.level));
    printf("Device size: %llu MB (%llu bytes) \n", Printed{info.size >> 20}, Printed{info.size});
    printf("Disk: \n");
    for (const RaidDisk *disk = info.disks.get(); disk != nullptr; disk = disk->next) {
        text_cut(state, word_of(kMemberStates, disk->state));
        printf("\t [%s: %s]\n", disk->path, state);
    }
    printf("\n");
    return 0;
}

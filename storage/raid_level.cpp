#include <cstring>

#include "lib/report.h"
#include "storage/raid_parts.h"

namespace
{

struct LevelRow {
    int number; // of the kernel
    const char *word;
    RaidLevel level;
};
constexpr LevelRow kLevels[] = {
    {0, "raid0", kRaidLevel0},    {1, "raid1", kRaidLevel1},    {5, "raid5", kRaidLevel5},
    {6, "raid6", kRaidLevel6},    {10, "raid10", kRaidLevel10}, {-1, "linear", kRaidLevelLinear},
    {45, "raidF1", kRaidLevelF1},
};

} // namespace

int32_t raid_level_of_number(int number)
{
    for (const LevelRow &row : kLevels)
        if (row.number == number)
            return row.level;
    NORV_LOG(LOG_DEBUG, "Not supported RAID level: %d", number);
    return 0;
}

int32_t raid_level_of_word(const char *word)
{
    for (const LevelRow &row : kLevels)
        if (strcmp(row.word, word) == 0)
            return row.level;
    return kRaidLevel5;
}

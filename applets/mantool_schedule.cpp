#include <algorithm>
#include <cstdio>

#include "applets/mantool.h"
#include "external/power_schedule.h"
#include "lib/file.h"
#include "lib/string.h"
#include "net/net_wol.h"

// Reads an entry 0xWWHHMM: weekdays, hour, minute. False, told, when it is none.
static bool entry_parse(const char *text, NORVAutoPowerSet::Entry *entry)
{
    uint32_t number = 0;
    if (!ParseNumber(text, &number) || number > 0xffffff) {
        printf("Error input:[%s]\n", text);
        return false;
    }
    *entry = {static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number >> 16)};
    if (entry->minute > 59) {
        printf("Error input:[%s]:min cannot more than 60\n", text);
        return false;
    }
    if (entry->hour > 23) {
        printf("Error input:[%s]:hour cannot more than 24\n", text);
        return false;
    }
    if (entry->weekdays > 0x7f) {
        printf("Error input:[%s]:weekdays cannot more than 0x7F\n", text);
        return false;
    }
    return true;
}

// Prints the first entries of the board's list, at most `asked`.
static int alarms_print(int asked)
{
    NORVAutoPowerSet alarms = {};
    if (power_schedule_board_read(&alarms) != 0) {
        puts("Failed to get alarm time");
        return -1;
    }
    const int count = std::min({asked, alarms.count, kPowerSchedulesMax});
    puts("--------- Alarm time ---------");
    printf("Enabled=%d\n", alarms.enabled);
    printf("Have [%d] schedules, we print the first [%d]\n", alarms.count, count);
    for (int i = 0; i < count; i++) {
        const NORVAutoPowerSet::Entry &entry = alarms.entries[i];
        printf("[%d]th alarm time:[0x%02X%02X%02X]\n", i + 1, entry.weekdays, entry.hour, entry.minute);
    }
    return 0;
}

int man_auto_poweron_enable(int argc, char *argv[])
{
    const int count = argc - 2;
    if (count < 1 || count > kPowerSchedulesMax)
        return mantool_usage_error();
    NORVAutoPowerSet alarms = {};
    NORVPowerSchedule schedules[kPowerSchedulesMax] = {};
    for (int i = 0; i < count; i++) {
        NORVAutoPowerSet::Entry &entry = alarms.entries[i];
        if (!entry_parse(argv[i + 2], &entry))
            return -1;
        schedules[i] = {1, entry.weekdays, entry.hour, entry.minute};
    }
    alarms.count = count;
    alarms.enabled = 1;
    if (power_schedule_board_write(&alarms) != 0) {
        printf("Failed to set alarm %d data\n", count);
        return -1;
    }
    if (power_schedule_write(PowerScheduleList::kOn, schedules, count) != 0) {
        puts("Failed to set power on schedule");
        return -1;
    }
    return alarms_print(count);
}

int man_auto_poweron_disable(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return mantool_usage_error();
    const NORVAutoPowerSet none = {};
    if (power_schedule_board_write(&none) != 0) {
        puts("Failed to set alarm time");
        return -1;
    }
    return alarms_print(1);
}

int man_auto_poweron_get(int argc, char *argv[])
{
    uint32_t count = 0;
    if (argc != 3 || !ParseNumber(argv[2], &count) || count < 1)
        return mantool_usage_error();
    return alarms_print(static_cast<int>(std::min(count, uint32_t{kPowerSchedulesMax})));
}

// All three need the model to say that it can, and so see to it.
static int wol_prepare(int argc, char *argv[])
{
    if (argc != 3)
        return mantool_usage_error();
    if (NLIBCFileSetKeyValue(kDefaultsPath, "support_wol", "yes", kConfFormat) == 1)
        return 0;
    printf("Failed to enabled support wake-on-lan of %s.\n", argv[2]);
    return -1;
}

int man_wol_enable(int argc, char *argv[])
{
    if (wol_prepare(argc, argv) != 0)
        return -1;
    if (net_wol_enable(argv[2], 1) == 0)
        return 0;
    printf("Failed to enable wake-on-lan of %s.\n", argv[2]);
    return -1;
}

int man_wol_disable(int argc, char *argv[])
{
    if (wol_prepare(argc, argv) != 0)
        return -1;
    if (net_wol_enable(argv[2], 0) == 0)
        return 0;
    printf("Failed to disable wake-on-lan of %s.\n", argv[2]);
    return -1;
}

int man_wol_get(int argc, char *argv[])
{
    if (wol_prepare(argc, argv) != 0)
        return -1;
    const int enabled = net_wol_get(argv[2]);
    if (enabled < 0)
        return -1;
    printf("%s: %s\n", argv[2], enabled == 1 ? "Enable" : "Disable");
    return 0;
}

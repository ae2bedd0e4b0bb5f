#include "external/power_schedule.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/proc.h"
#include "lib/report.h"

static constexpr char kSchedulePath[] = "/etc/power_sched.conf";
static constexpr char kScheduleTempPath[] = "/tmp/power_sched.conf.tmp";

namespace
{

// One list in the packed form that the file holds: flag, weekdays, hour and minute, a byte each from the top.
struct PackedList {
    uint32_t numbers[kPowerSchedulesMax];
    int count;
};
struct ListName {
    const char *header, *word;
};
constexpr ListName kListNames[] = {{"Power On schedule", "ON"}, {"Power Off schedule", "OFF"}};

const ListName &name_of(PowerScheduleList list)
{
    return kListNames[static_cast<int>(list)];
}

uint32_t pack(const NORVPowerSchedule &entry)
{
    return (entry.enabled & 1U) << 24 | (entry.weekdays & 0x7fU) << 16 | (entry.hour & 0x1fU) << 8 |
           (entry.minute & 0x3fU);
}

NORVPowerSchedule unpack(uint32_t number)
{
    return {static_cast<uint8_t>(number >> 24 & 1), static_cast<uint8_t>(number >> 16 & 0x7f),
            static_cast<uint8_t>(number >> 8 & 0x1f), static_cast<uint8_t>(number & 0x3f)};
}

void sort(PackedList *list)
{
    std::sort(list->numbers, list->numbers + list->count);
}

PackedList list_read(PowerScheduleList which)
{
    PackedList list = {};
    const UniqueFile file(fopen(kSchedulePath, "re"));
    if (!file)
        return list;
    char header[32];
    snprintf(header, sizeof(header), "[%s]", name_of(which).header);
    char line[128];
    bool inside = false;
    while (list.count < kPowerSchedulesMax && fgets(line, sizeof(line), file.get()) != nullptr) {
        if (inside && line[0] == '[')
            break;
        if (!inside)
            inside = strncmp(line, header, strlen(header)) == 0;
        else if (isdigit(static_cast<unsigned char>(line[0])))
            list.numbers[list.count++] = static_cast<uint32_t>(strtoul(line, nullptr, 10));
    }
    return list;
}

// Walks two sorted lists in step and logs what only one of them has.
void changes_log(const PackedList &before, const PackedList &after, const char *word)
{
    int b = 0, a = 0;
    while (b < before.count || a < after.count) {
        if (a == after.count || (b < before.count && before.numbers[b] < after.numbers[a])) {
            NORV_LOG(LOG_ERR, "Remove power schedule 0x%08x %s\n", before.numbers[b++], word);
        } else if (b == before.count || after.numbers[a] < before.numbers[b]) {
            NORV_LOG(LOG_ERR, "Add power schedule 0x%08x %s\n", after.numbers[a++], word);
        } else {
            a++;
            b++;
        }
    }
}

bool list_print(FILE *file, PowerScheduleList which, const PackedList &list)
{
    bool ok = fprintf(file, "[%s]\n", name_of(which).header) > 0;
    for (int i = 0; i < list.count; i++)
        ok = fprintf(file, "%u\n", list.numbers[i]) > 0 && ok;
    return ok;
}

int file_write(const PackedList &on, const PackedList &off)
{
    UniqueFile file(fopen(kScheduleTempPath, "we"));
    if (!file)
        return fail(kErrOpen);
    const bool printed =
        list_print(file.get(), PowerScheduleList::kOn, on) && list_print(file.get(), PowerScheduleList::kOff, off);
    if (fclose(file.release()) != 0 || !printed)
        return fail(kErrWrite);
    const int status = NLIBCExec("/bin/cp", kScheduleTempPath, kSchedulePath);
    return status > 0 ? fail(kErrChild) : status;
}

} // namespace

int power_schedule_read(PowerScheduleList list, NORVPowerSchedule *entries, int max)
{
    const PackedList packed = list_read(list);
    const int count = std::min(packed.count, max);
    for (int i = 0; i < count; i++)
        entries[i] = unpack(packed.numbers[i]);
    return count;
}

int power_schedule_write(PowerScheduleList list, const NORVPowerSchedule *entries, int count)
{
    if (count < 0 || count > kPowerSchedulesMax || (count > 0 && entries == nullptr))
        return fail(kErrBadParameter);
    PackedList after = {};
    for (int i = 0; i < count; i++)
        after.numbers[after.count++] = pack(entries[i]);
    PackedList before = list_read(list);
    sort(&after);
    sort(&before);
    changes_log(before, after, name_of(list).word);

    const bool is_on = list == PowerScheduleList::kOn;
    const PackedList other = list_read(is_on ? PowerScheduleList::kOff : PowerScheduleList::kOn);
    if (after.count == 0 && other.count == 0)
        return unlink(kSchedulePath) == 0 || errno == ENOENT ? 0 : fail(kErrWrite);
    return is_on ? file_write(after, other) : file_write(other, after);
}

#include <algorithm>
#include <cstdio>
#include <json-c/json.h>

#include "tools/norv-plan/plan.h"

namespace
{

struct ReasonRow {
    const char *word, *sentence;
};
// By DiskFormatReason.
constexpr ReasonRow kReasons[] = {
    {"not-named", "it has no name"},
    {"forced", "/.force_clean_all_disk asks for every disk"},
    {"no-system-partitions", "it has neither partition 1 nor partition 2"},
    {"no-layout", "its partitions 1 and 2 lie as in no layout"},
    {"no-listing", "the machine's partitions are not known"},
    {"same-layout", "it has the wanted layout, or one that lies as well, and an array that this system may use"},
    {"other-layout-used", "it has another layout than the wanted one, and its data partition is in an array"},
    {"other-layout", "it has another layout than the wanted one, and its data partition is in no array"},
    {"oldest-layout", "of the oldest layout nothing can be kept"},
    {"not-ours", "it has a layout, but no array that this system may use"},
};
static_assert(std::size(kReasons) == kFormatNotOurs + 1);

// Bays from 1 that hold none of the disks.
std::vector<int> empty_bays(const Plan &plan)
{
    std::vector<int> bays;
    for (int bay = 1; bay <= plan.bays; bay++)
        if (std::none_of(plan.disks.begin(), plan.disks.end(),
                         [&](const PlannedDisk &disk) { return disk.location.index == bay; }))
            bays.push_back(bay);
    return bays;
}

// The numbers of the partitions that stay, or of those that go.
std::string numbers_of(const PlannedDisk &disk, bool kept)
{
    std::string numbers;
    for (const PlannedPartition &partition : disk.partitions)
        if (partition.is_kept == kept)
            numbers += " " + std::to_string(partition.number);
    return numbers.empty() ? " nothing"
                           : (numbers.find(' ', 1) == std::string::npos ? " partition" : " partitions") + numbers;
}

// What becomes of the disk.
std::string outcome_of(const PlannedDisk &disk)
{
    if (!disk.is_formatted())
        return disk.decision.type == kDiskFormatUnknown ? "left alone, since another disk has data to keep"
                                                        : "left alone";
    if (!disk.obstacle.empty())
        return "no system partitions can be made: " + disk.obstacle;
    if (disk.place < 0)
        return "gets system partitions, but the arrays have no place for it: their metadata is wiped";
    return "gets system partitions, place " + std::to_string(disk.place) + " of /dev/md0 and /dev/md1";
}

void disk_print(const PlannedDisk &disk)
{
    if (disk.location.unit != 0)
        printf("unit %d ", disk.location.unit);
    printf("bay %d: %s, %.1f GiB", disk.location.index, disk.name.c_str(),
           static_cast<double>(disk.sectors) / (1 << 21));
    if (disk.decision.layout != 0)
        printf(", layout %d", disk.decision.layout);
    puts("");
    for (const PlannedPartition &partition : disk.partitions)
        printf("  partition %d: sectors %llu to %llu%s%s\n", partition.number,
               static_cast<unsigned long long>(partition.start),
               static_cast<unsigned long long>(partition.start + partition.sectors - 1),
               partition.array.empty() ? "" : ", metadata of ", partition.array.c_str());
    printf("  type %d: %s", disk.decision.type, kReasons[disk.decision.reason].sentence);
    if (!disk.decided_by.empty())
        printf(" (%s)", disk.decided_by.c_str());
    const bool goes_whole = disk.type == kDiskFormatWhole; // also what lies outside of partitions
    printf("\n  erases%s, keeps%s\n  %s\n", goes_whole ? " all of the disk" : numbers_of(disk, false).c_str(),
           numbers_of(disk, true).c_str(), outcome_of(disk).c_str());
}

json_object *text_or_null(const std::string &text)
{
    return text.empty() ? nullptr : json_object_new_string(text.c_str());
}

json_object *partition_facts(const PlannedPartition &partition)
{
    json_object *facts = json_object_new_object();
    json_object_object_add(facts, "number", json_object_new_int(partition.number));
    json_object_object_add(facts, "start", json_object_new_uint64(partition.start));
    json_object_object_add(facts, "sectors", json_object_new_uint64(partition.sectors));
    json_object_object_add(facts, "array", text_or_null(partition.array));
    json_object_object_add(facts, "kept", json_object_new_boolean(partition.is_kept));
    return facts;
}

json_object *disk_facts(const PlannedDisk &disk)
{
    json_object *facts = json_object_new_object(), *partitions = json_object_new_array();
    json_object_object_add(facts, "bay", json_object_new_int(disk.location.index));
    json_object_object_add(facts, "unit", json_object_new_int(disk.location.unit));
    json_object_object_add(facts, "disk", json_object_new_string(disk.name.c_str()));
    json_object_object_add(facts, "sectors", json_object_new_uint64(disk.sectors));
    json_object_object_add(facts, "layout", json_object_new_int(disk.decision.layout));
    json_object_object_add(facts, "type", json_object_new_int(disk.decision.type));
    json_object_object_add(facts, "reason", json_object_new_string(kReasons[disk.decision.reason].word));
    json_object_object_add(facts, "decided_by", text_or_null(disk.decided_by));
    json_object_object_add(facts, "formatted", json_object_new_boolean(disk.is_formatted()));
    json_object_object_add(facts, "obstacle", text_or_null(disk.obstacle));
    json_object_object_add(facts, "place", disk.place < 0 ? nullptr : json_object_new_int(disk.place));
    for (const PlannedPartition &partition : disk.partitions)
        json_object_array_add(partitions, partition_facts(partition));
    json_object_object_add(facts, "partitions", partitions);
    return facts;
}

json_object *numbers_array(const std::vector<int> &numbers)
{
    json_object *array = json_object_new_array();
    for (const int number : numbers)
        json_object_array_add(array, json_object_new_int(number));
    return array;
}

std::vector<int> free_places(const Plan &plan)
{
    std::vector<int> places;
    for (int place = plan.taken; place < plan.places; place++)
        places.push_back(place);
    return places;
}

} // namespace

void plan_print(const Plan &plan)
{
    for (const PlannedDisk &disk : plan.disks)
        disk_print(disk);
    for (const int bay : empty_bays(plan))
        printf("bay %d: empty\n", bay);
    if (plan.taken == 0) {
        puts("no disk can take the system: initsys would fail");
        return;
    }
    printf("layout %d, /dev/md0 and /dev/md1 with %d places, free:", plan.version, plan.places);
    for (const int place : free_places(plan))
        printf(" %d", place);
    puts(plan.taken == plan.places ? " none" : "");
}

void plan_print_json(const Plan &plan)
{
    json_object *facts = json_object_new_object(), *disks = json_object_new_array();
    json_object_object_add(facts, "layout", json_object_new_int(plan.version));
    json_object_object_add(facts, "places", json_object_new_int(plan.places));
    json_object_object_add(facts, "free_places", numbers_array(free_places(plan)));
    json_object_object_add(facts, "empty_bays", numbers_array(empty_bays(plan)));
    for (const PlannedDisk &disk : plan.disks)
        json_object_array_add(disks, disk_facts(disk));
    json_object_object_add(facts, "disks", disks);
    puts(json_object_to_json_string_ext(facts, JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE));
    json_object_put(facts);
}

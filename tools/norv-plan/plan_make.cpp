#include <algorithm>
#include <cstring>

#include "autocleanup/unique.h"
#include "lib/conf.h"
#include "storage/partition_layout.h"
#include "storage/raid.h"
#include "tools/norv-plan/plan.h"

namespace
{

constexpr int kLastPartition = 128; // what is deleted at most, by number
constexpr int kSystemPartitions = 2;

std::vector<PlannedPartition> partitions_find(const std::string &disk)
{
    std::vector<PlannedPartition> found;
    for (int n = 1; n <= kLastPartition; n++) {
        PlannedPartition partition = {n, 0, 0, "", true};
        char path[128];
        RaidSuperblock superblock;
        if (partition_start_size_get(disk.c_str(), n, &partition.start, &partition.sectors) != 1 ||
            disk_device_partition_path_get(disk.c_str(), n, path, sizeof(path)) != 0)
            continue;
        if (raid_superblock_get(path, &superblock) == 1)
            partition.array = superblock.device[0] != '\0' ? superblock.device : "an array";
        found.push_back(partition);
    }
    return found;
}

PlannedDisk disk_plan(const char *name, int version, const NLIBSZLIST *partitions)
{
    PlannedDisk disk = {};
    disk.name = name;
    disk.place = -1;
    if (disk_path_parse(name, &disk.location) < 0)
        disk.location = {};
    if (disk_size_get(("/dev/" + disk.name).c_str(), &disk.sectors) != 1)
        disk.sectors = 0;
    disk.decision = disk_format_decide(name, version, partitions);
    if (disk.decision.partition != nullptr)
        disk.decided_by = disk.decision.partition;
    disk.decision.partition = nullptr; // the list goes
    disk.type = disk.decision.type;
    disk.partitions = partitions_find(disk.name);
    return disk;
}

// Where the system partitions of a disk are to end. 0 when the model has no such layout.
uint64_t system_end(const PlannedDisk &disk, int version)
{
    if (NLIBCConfIsHdSeries() && disk.name.find("sysd") != std::string::npos)
        return kPartitionHdSeriesSystem.start + kPartitionHdSeriesSystem.size;
    const PartitionLayout *layout = partition_layout_find(version, conf_supportraid());
    return layout == nullptr ? 0 : layout->partition[0].start + layout->sysSize + layout->swapSize;
}

std::string obstacle_find(const PlannedDisk &disk, int version)
{
    const uint64_t end = system_end(disk, version);
    if (end == 0)
        return "the model has no layout of this version";
    if (disk.sectors != 0 && disk.sectors < end)
        return "the disk is too small";
    for (const PlannedPartition &partition : disk.partitions)
        if (partition.is_kept && partition.start < end)
            return "partition " + std::to_string(partition.number) + " is in the way";
    return "";
}

// Goes by the types that are settled.
void places_assign(Plan *plan)
{
    for (PlannedDisk &disk : plan->disks) {
        if (!disk.is_formatted())
            continue;
        for (PlannedPartition &partition : disk.partitions)
            partition.is_kept = disk.type != kDiskFormatWhole && partition.number > kSystemPartitions;
        disk.obstacle = obstacle_find(disk, plan->version);
        if (disk.obstacle.empty() && plan->taken < plan->places)
            disk.place = plan->taken++;
    }
}

} // namespace

int plan_make(Plan *plan)
{
    *plan = {};
    plan->places = std::max(0, NLIBCConfMaxSysRaidDisksGet());
    if (!conf_support_install_only_dev() && NLIBCConfSupportDualHead() != 1)
        plan->bays = NLIBCConfMaxDisksGet();
    UniqueList names(NLIBCSzListAlloc(1024)), partitions(NLIBCSzListAlloc(4096));
    if (!names || NORVDiskSystemInstallationDeviceEnum(names.address()) < 0 ||
        partition_layout_get_max(&plan->version, true) < 0)
        return -1;
    if (partitions && partition_path_enum(nullptr, partitions.address()) < 0)
        partitions.reset();
    std::vector<int> types;
    for (int i = 0; i < names.get()->nItem; i++) {
        plan->disks.push_back(disk_plan(names.get()->items[i], plan->version, partitions.get()));
        types.push_back(plan->disks.back().type);
    }
    disk_format_settle(types.data(), static_cast<int>(types.size()));
    for (size_t i = 0; i < types.size(); i++)
        plan->disks[i].type = plan->version == 0 ? kDiskFormatLeave : types[i];
    places_assign(plan);
    return 0;
}

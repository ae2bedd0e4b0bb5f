#include <cstdio>
#include <cstdlib>

#include "applets/raidtool.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "storage/disk_format_type.h"
#include "storage/partition.h"
#include "storage/partition_layout.h"

namespace
{

constexpr int kMade = 1; // exit status of a child whose disk has its system partitions

bool is_formatted(const DiskWork &task, int index)
{
    const int type = task.types[index];
    return type == kDiskFormatWhole || type == kDiskFormatSystem || type == kDiskFormatUnknown;
}

int format_work(const DiskWork &task, int index)
{
    const char *disk = task.disks->items[index];
    const int deleted = task.types[index] == kDiskFormatWhole ? kPartitionAll : kPartitionSystem;
    if (partition_clean(disk, deleted) == 0 && partition_create(disk, kPartitionSystem, &task.version) == 0)
        return kMade;
    NORV_LOG(LOG_ERR, "Failed to create system partition of %s, newlayout=%d, errno=0x%X", disk, task.version,
             static_cast<unsigned>(NLIBCErrGet()));
    return -1;
}

// Takes the disks whose partitions were made, in their order, as long as the arrays have places.
void members_collect(const NLIBSZLIST *disks, const int *results, SystemMembers *members)
{
    for (int i = 0; i < disks->nItem; i++) {
        if (results[i] != kMade)
            continue;
        if (members->count < members->limit) {
            static_cast<void>(system_members_add(members, disks->items[i]));
        } else {
            static_cast<void>(partition_clean_superblock(disks->items[i], 1));
            static_cast<void>(partition_clean_superblock(disks->items[i], 2));
        }
    }
}

// Has an outside program write the partitions, whatever comes of it.
void partitions_write(const SystemMembers &members)
{
    UniqueText command;
    if (asprintf(command.address(), "/bin/norvdd %s %s > /dev/null 2>&1",
                 members.count > 0 ? members.root.text.get() : "",
                 members.count > 0 ? members.swap.text.get() : "") < 0)
        return;
    const int status = system(command.get());
    if (status == -1)
        puts("can not fork to norvdd");
    else if (status != 0)
        puts("system init with norvdd failed");
}

int initsys(bool with_dd)
{
    int version = 0;
    SystemMembers members;
    members.limit = NLIBCConfMaxSysRaidDisksGet();
    if (partition_layout_get_max(&version, true) < 0 || version == 0) {
        NORV_LOG(LOG_ERR, "Failed to find partition layout");
        return 1;
    }
    const UniqueList disks = install_disks_get();
    const size_t count = disks ? static_cast<size_t>(disks.get()->nItem) : 0;
    const UniqueBlock<int> types(static_cast<int *>(calloc(count + 1, sizeof(int)))); // all untouched at first
    const UniqueBlock<int> results(static_cast<int *>(calloc(count + 1, sizeof(int))));
    if (!disks || !types || !results || format_types_find(disks.get(), version, types.get()) != 0)
        return 1;
    disk_format_settle(types.get(), disks.get()->nItem);
    const DiskWork format = {.disks = disks.get(),
                             .work = format_work,
                             .chosen = is_formatted,
                             .version = version,
                             .partitions = nullptr,
                             .types = types.get()};
    if (disks_work(format, results.get()) != 0)
        return 1;
    members_collect(disks.get(), results.get(), &members);
    if (with_dd)
        partitions_write(members);
    if (members.count == 0) {
        NORV_LOG(LOG_ERR, "No disk to create system and swap partition, initsys fail!");
        return 1;
    }
    // A mirror that was not made shows when the system is to be mounted.
    system_array_create("/dev/md0", members, members.root);
    system_array_create("/dev/md1", members, members.swap);
    NORV_LOG(LOG_ERR, "system inited on [%s], [%s]", members.root.text.get(), members.swap.text.get());
    return 0;
}

} // namespace

int raidtool_initsys(int /*argc*/, char * /*argv*/[])
{
    return initsys(false);
}

int raidtool_initsys_dd(int /*argc*/, char * /*argv*/[])
{
    return initsys(true);
}

int raidtool_initsys_hdseries(int /*argc*/, char * /*argv*/[])
{
    if (!NLIBCConfIsHdSeries()) {
        NORV_LOG(LOG_ERR, "Failed to initsys-system-disk, not member of HD series.");
        return 1;
    }
    SystemMembers members;
    members.limit = NLIBCConfMaxSysRaidDisksGet();
    const UniqueList disks = install_disks_get();
    for (int i = 0; disks && i < disks.get()->nItem; i++) {
        const char *disk = disks.get()->items[i];
        static_cast<void>(partition_clean(disk, kPartitionAll));
        if (partition_create(disk, kPartitionSystem, nullptr) != 0) {
            NORV_LOG(LOG_ERR, "Failed to create system partition of %s, errno=0x%X", disk,
                     static_cast<unsigned>(NLIBCErrGet()));
            return 1;
        }
        if (members.count < members.limit)
            static_cast<void>(system_members_add(&members, disk));
        else
            static_cast<void>(partition_clean_superblock(disk, 1));
    }
    if (members.count == 0) {
        NORV_LOG(LOG_ERR, "Failed to initsys-hdseries, No disk to create system partition.");
        return 1;
    }
    system_array_create("/dev/md0", members, members.root);
    NORV_LOG(LOG_ERR, "Success to init system on [%s]", members.root.text.get());
    return 0;
}

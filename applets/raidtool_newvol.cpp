#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "applets/raidtool.h"
#include "disk/disk.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/report.h"
#include "storage/partition.h"

namespace
{

constexpr char kDevice[] = "/dev/md2";
constexpr size_t kListRoom = 512;
constexpr int kDefaultSplitUnits = 12;
constexpr int kFewDisks = 3; // below this, a mirror

// The disks that one head of a dual-head model takes.
int split_units()
{
    char value[16];
    if (NLIBCFileGetKeyValue(kDefaultsPath, "raidgroup_split_units", value, sizeof(value), 0) <= 0)
        return kDefaultSplitUnits;
    return atoi(value);
}

// Makes partition 3 of a disk, which goes on the list. Returns 0; -1, logged.
int data_partition_make(const char *name, char (&list)[kListRoom])
{
    char disk[128], partition[128];
    const int model_version = 0;
    if (disk_device_path_get(name, disk, sizeof(disk)) < 0)
        return -1;
    if (partition_clean(disk, kPartitionData) != 0) {
        NORV_LOG(LOG_ERR, "Failed to clean all partition of %s, errno=0x%X", disk,
                 static_cast<unsigned>(NLIBCErrGet()));
        return -1;
    }
    if (partition_create(disk, kPartitionData, &model_version) != 0) {
        NORV_LOG(LOG_ERR, "Failed to create data partition of %s, errno=0x%X", disk,
                 static_cast<unsigned>(NLIBCErrGet()));
        return -1;
    }
    if (disk_device_partition_path_get(disk, 3, partition, sizeof(partition)) != 0)
        return -1;
    const size_t used = strlen(list);
    if (used + strlen(partition) + 2 > sizeof(list)) {
        NORV_LOG(LOG_ERR, "Too many disks for one array, %s does not fit", partition);
        return fail(kErrBufferTooSmall);
    }
    snprintf(list + used, sizeof(list) - used, "%s ", partition);
    return 0;
}

// The level that a flag file asks for, else the one that suits so many disks; says which.
int level_choose(int disks)
{
    struct Flag {
        const char *file;
        int level;
    };
    static constexpr Flag kFlags[] = {{"/tmp/raid.0", 0}, {"/tmp/raid.1", 1}, {"/tmp/raid.5", 5}};
    for (const Flag &flag : kFlags)
        if (access(flag.file, R_OK) == 0) {
            printf("Creating RAID %d volume... \n", flag.level);
            return flag.level;
        }
    if (disks < kFewDisks) {
        fputs("Creating RAID 1 volume... ", stdout);
        return 1;
    }
    fputs("Creating RAID 5 volume... ", stdout);
    return 5;
}

int volume_create(int level, int count, const char *list)
{
    UniqueText command;
    if (asprintf(command.address(), "/sbin/mdadm -C %s -amd -R -l%d %s -n%d %s> /dev/null 2>&1", kDevice, level,
                 count == 1 ? "-f" : "", count, list) < 0)
        return fail(kErrOutOfMemory);
    fflush(stdout);
    if (system(command.get()) != 0) {
        NORV_LOG(LOG_ERR, "Failed to create RAID '%s' on '%s', errno=%d", kDevice, list, errno);
        return fail(kErrRaidDiskCreate);
    }
    return 0;
}

} // namespace

int raidtool_newvol(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return raidtool_usage();
    const UniqueList disks = install_disks_get();
    const int count = disks ? disks.get()->nItem : 0;
    const bool dual_head = NLIBCConfSupportDualHead() == 1;
    char list[kListRoom] = "";
    for (int i = 0; i < count; i++) {
        if (dual_head && i >= split_units())
            NORV_LOG(LOG_ERR, "Get %d disks, more than raid group split unit", i + 1); // and is taken all the same
        if (data_partition_make(disks.get()->items[i], list) != 0)
            return 1;
    }
    if (count == 0) {
        fputs("No disk to create RAID... ", stdout);
        return 1;
    }
    return volume_create(level_choose(count), count, list) == 0 ? 0 : 1;
}

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "applets/raidtool.h"
#include "disk/disk.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr unsigned kSettleSeconds = 3; // until the new partitions' nodes are there
static constexpr char kMissing[] = " missing";

static int path_add(MemberList *list, const char *disk, int partition)
{
    char path[128];
    if (disk_device_partition_path_get(disk, partition, path, sizeof(path)) != 0 ||
        NLIBCStrCat(list->text.address(), &list->room, path) != 0)
        return -1;
    return NLIBCStrCat(list->text.address(), &list->room, " ");
}

int system_members_add(SystemMembers *members, const char *disk)
{
    if (path_add(&members->root, disk, 1) != 0 || path_add(&members->swap, disk, 2) != 0)
        return -1;
    members->count++;
    return 0;
}

int system_array_create(const char *device, const SystemMembers &members, const MemberList &list)
{
    char missing[256] = "";
    for (int i = members.count; i < members.limit && strlen(missing) + 1 < sizeof(missing); i++)
        strncat(missing, kMissing, sizeof(missing) - 1 - strlen(missing));
    const bool is_system = strcmp(device, "/dev/md0") == 0 || strcmp(device, "/dev/md1") == 0;
    sleep(kSettleSeconds);
    UniqueText command;
    if (asprintf(command.address(), "/sbin/mdadm -C %s %s -amd -R -l1 %s -n%d %s %s> /dev/null 2>&1", device,
                 is_system ? "-e 0.9" : "", members.count == 1 ? "-f" : "", members.limit, list.text.get(),
                 missing) < 0)
        return fail(kErrOutOfMemory);
    if (system(command.get()) != 0) {
        NORV_LOG(LOG_ERR, "Failed to create RAID '%s' on '%s' ", device, list.text.get());
        NORV_LOG(LOG_ERR, "szCmd=[%s]", command.get());
        return fail(kErrRaidDiskCreate);
    }
    return 0;
}

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "applets/raidtool.h"
#include "storage/lvm.h"
#include "storage/raid.h"

static constexpr unsigned kVolumeWaitSeconds = 3;

int raidtool_destroy(int argc, char *argv[])
{
    if (argc != 3)
        return raidtool_parameters_missing();
    char device[32];
    snprintf(device, sizeof(device), "/dev/md%d", atoi(argv[2]));
    if (lvm_rm_lvpath(device) < 0) {
        printf("Found LVM on %s, remove it \n", device);
        fflush(stdout);
        sleep(kVolumeWaitSeconds);
    }
    RaidInfo info = {};
    if (raid_info_get(device, &info) < 1) {
        printf("Not found %s \n", device);
        return 0;
    }
    RaidRemove(info); // logs what it could not do
    return 0;
}

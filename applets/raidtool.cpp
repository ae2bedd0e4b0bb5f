#include "applets/raidtool.h"

#include <cstdio>
#include <cstring>

#include "applets/applets.h"
#include "disk/disk.h"

namespace
{

struct RaidCommand {
    const char *name;
    int (*run)(int argc, char *argv[]);
};
constexpr RaidCommand kCommands[] = {
    {"destroy", raidtool_destroy},
    {"status", raidtool_status},
    {"newvol", raidtool_newvol},
    {"initsys", raidtool_initsys},
    {"initsys-dd", raidtool_initsys_dd},
    {"initsys-hdseries", raidtool_initsys_hdseries},
    {"enumformatalldisks", raidtool_enum_format},
    {"enumformatalldisks_indualhead_install", raidtool_enum_format_dual_head},
};

constexpr char kUsage[] = "usage:\n"
                          "\traidtool destroy <RAID ID> \n"
                          "\traidtool status <RAID ID> \n"
                          "\traidtool newvol \n"
                          "\traidtool initsys \n"
                          "\traidtool initsys-dd ";

} // namespace

int raidtool_usage()
{
    fputs(kUsage, stdout);
    return 1;
}

int raidtool_parameters_missing()
{
    puts("parameters not enough");
    return raidtool_usage();
}

UniqueList install_disks_get()
{
    UniqueList disks(NLIBCSzListAlloc(1024));
    if (disks && NORVDiskSystemInstallationDeviceEnum(disks.address()) < 0)
        disks.reset();
    return disks;
}

int raidtool_main(int argc, char *argv[])
{
    if (argc < 2)
        return raidtool_usage();
    for (const RaidCommand &command : kCommands)
        if (strcmp(command.name, argv[1]) == 0)
            return command.run(argc, argv);
    puts("command not recognized");
    return raidtool_usage();
}

#include <cstdio>
#include <getopt.h>
#include <iterator>

#include "applets/applets.h"
#include "applets/banner.h"
#include "applets/not_built_in.h"
#include "install/system_status.h"

// --download, --start and --parse stand here alone: they are no options any more.
static constexpr char kUsage[] = "\t--auto\n"
                                 "\t--check For fresh install\n"
                                 "\t--check-migrate For disk migration\n"
                                 "\t--check-reinstall For disk migration reinstall or system crash\n"
                                 "\t--download\n"
                                 "\t--start\n"
                                 "\t--parse\n"
                                 "\t--patch ABSOULATE_UPGRADE_FILE_PATH ABSOLUATE_UPGRADE_VOLUME\n"
                                 "\t        ex: norvupgrade --patch /tmpRoot/upd@te.pat /tmpRoot\n"
                                 "\t--buildin-install\n"
                                 "\t--check-system\n"
                                 "\t--recover\n";

static int check_system_run(int /*argc*/, char * /*argv*/[])
{
    return CheckSysStatus();
}

struct UpgradeMode {
    const char *option;
    int (*run)(int argc, char *argv[]); // takes the process's arguments
};
static constexpr UpgradeMode kModes[] = {
    {"auto", not_built_in},
    {"check", not_built_in},
    {"check-reinstall", not_built_in},
    {"check-migrate", not_built_in},
    {"patch", not_built_in},
    {"buildin-install", not_built_in},
    {"check-system", check_system_run},
    {"recover", not_built_in},
};

int norvupgrade_main(int argc, char *argv[])
{
    int mode = 0; // row number, from 1
    option options[std::size(kModes) + 1] = {};
    for (int i = 0; const UpgradeMode &row : kModes) {
        options[i] = {row.option, no_argument, &mode, i + 1};
        i++;
    }
    if (getopt_long_only(argc, argv, "", options, nullptr) == 0 && mode != 0)
        return kModes[mode - 1].run(argc, argv);
    banner_print();
    fflush(stdout);
    fputs(kUsage, stderr);
    return 0;
}

#include <cstdio>
#include <getopt.h>

#include "applets/applets.h"
#include "applets/not_built_in.h"
#include "lib/report.h"

static constexpr option kOptions[] = {
    {"on", required_argument, nullptr, 'n'},
    {"off", required_argument, nullptr, 'f'},
    {"start", no_argument, nullptr, 't'},
    {"stop", no_argument, nullptr, 'p'},
    {nullptr, 0, nullptr, 0},
};

static constexpr char kUsage[] = "Usage: norv_swap_ctl\n"
                                 "--on <dev>      ex: mkswap dev and swapon dev\n"
                                 "--off <dev>     ex: swapoff dev\n"
                                 "--start         ex: assemble md1 and swapon it\n"
                                 "--stop          ex: swapoff md1 and disassemble it";

int norv_swap_ctl_main(int argc, char *argv[])
{
    const int chosen = getopt_long_only(argc, argv, "n:f:tp", kOptions, nullptr);
    if (chosen == '?' && (optopt == 'n' || optopt == 'f')) { // known, but its argument is missing
        NORV_LOG(LOG_ERR, "%s(%d): Invalid arguments", "norv_swap_ctl", __LINE__);
        return -1;
    }
    if (chosen == -1 || chosen == '?') {
        puts(kUsage);
        return -1;
    }
    return not_built_in(argc, argv);
}

#include <cstdio>
#include <getopt.h>

#include "applets/applets.h"
#include "lib/report.h"
#include "swap/swap.h"

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
    if (chosen == '?' && (optopt == 'n' || optopt == 'f')) // known, but its argument is missing
        NORV_LOG(LOG_ERR, "%s(%d): Invalid arguments", "norv_swap_ctl", __LINE__);
    switch (chosen) {
    case 'n':
        return swap_make_and_on(optarg, 0);
    case 'f':
        return swap_off(optarg);
    case 't':
        return swap_start();
    case 'p':
        return swap_stop();
    default:
        puts(kUsage);
        return -1;
    }
}

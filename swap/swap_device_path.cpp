#include "lib/conf.h"
#include "swap/swap.h"

// The first row that holds counts.
static const char *device_choose()
{
    if (conf_supportraid())
        return "/dev/md1";
    if (conf_ali_nos())
        return "/dev/sda6";
    if (NLIBCConfIsYes("supportportmappingv2"))
        return "/dev/sata1p2";
    return "/dev/sda2";
}

const char *swap_device_path()
{
    static const char *const device = device_choose();
    return device;
}

// Writes what the first start of a system is told: `ns_config_call SYSTEM_DEVICE VOLUME_DEVICE MOUNT FORM` prints the
// result. It stands in a box: no role has a volume for the patch that is not the system's.
#include <cstdio>

#include "autocleanup/unique.h"
#include "install/cgi_param.h"
#include "install/ns_config.h"
#include "install/system_status.h"
#include "lib/text.h"

int main(int argc, char *argv[])
{
    if (argc != 5)
        return 2;
    text_cut(gszSysDev, argv[1]);
    text_cut(gszUpgradeVolDev, argv[2]);
    UniqueHash params(NLIBCSzHashAlloc(kCgiParamBytes));
    cgi_pairs_load(argv[4], true, params.address());
    printf("%d", PrepareNSConfig(params.get(), argv[3]));
    return 0;
}

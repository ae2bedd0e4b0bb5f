#include <cstring>

#include "applets/applets.h"
#include "applets/not_built_in.h"
#include "lib/conf.h"

int norvssdcache_main(int argc, char *argv[])
{
    if (argc != 2)
        return -1;
    if (strcmp(argv[1], "--check") != 0 || conf_support_install_only_dev())
        return 0;
    return not_built_in(argc, argv);
}

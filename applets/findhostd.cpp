#include "applets/applets.h"
#include "applets/banner.h"
#include "applets/not_built_in.h"

int findhostd_main(int argc, char *argv[])
{
    if (help_is_asked(argc, argv)) {
        banner_print();
        return -1; // unlike the other daemons
    }
    return not_built_in(argc, argv);
}

#include "applets/applets.h"
#include "applets/banner.h"
#include "applets/not_built_in.h"

int manutild_main(int argc, char *argv[])
{
    if (help_is_asked(argc, argv)) {
        banner_print();
        return 0;
    }
    return not_built_in(argc, argv);
}

#include "applets/applets.h"
#include "applets/not_built_in.h"

int norvchecksum_main(int argc, char *argv[])
{
    if (argc != 2)
        return 1;
    return not_built_in(argc, argv);
}

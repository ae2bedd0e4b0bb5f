#include <cstdio>

#include "applets/applets.h"
#include "applets/banner.h"
#include "applets/not_built_in.h"

int norv_extract_system_patch_main(int argc, char *argv[])
{
    if (argc != 3) {
        banner_print();
        printf("%s PATCH_PATH DEST_PATH\n", argv[0]);
        return -1;
    }
    return not_built_in(argc, argv);
}

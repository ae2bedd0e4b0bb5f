#include <cstdio>

#include "applets/applets.h"
#include "applets/banner.h"
#include "lib/norvarchive.h"

int norv_extract_system_patch_main(int argc, char *argv[])
{
    if (argc != 3) {
        banner_print();
        printf("%s PATCH_PATH DEST_PATH\n", argv[0]);
        return -1;
    }
    return NorvArchiveExtractSystem(argv[1], argv[2]) == kNorvArchiveGood ? 0 : -1;
}

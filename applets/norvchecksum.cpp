#include "applets/applets.h"
#include "lib/cksum/cksum.h"

int norvchecksum_main(int argc, char *argv[])
{
    return argc == 2 && CheckDirChecksum(argv[1], 0) == kChecksumGood ? 0 : 1;
}

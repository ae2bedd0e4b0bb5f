#include "external/board_device.h"

#include <fcntl.h>

#include "lib/report.h"

UniqueFd board_open()
{
    UniqueFd device(open(kBoardPath, O_RDWR | O_CLOEXEC));
    if (!device)
        NLIBCErrSet(kErrOpen, __FILE_NAME__, __LINE__);
    return device;
}

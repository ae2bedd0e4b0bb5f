#include "external/board_device.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include "lib/report.h"

UniqueFd board_open()
{
    UniqueFd device(open(kBoardPath, O_RDWR | O_CLOEXEC));
    if (!device)
        NLIBCErrSet(kErrOpen, __FILE_NAME__, __LINE__);
    return device;
}

template <typename Argument> static int request_make(BoardRequest request, Argument argument)
{
    const UniqueFd device = board_open();
    if (!device)
        return -1;
    const int result = ioctl(device.get(), request, argument);
    return result < 0 ? fail(kErrSystemCall) : result;
}

int board_request(BoardRequest request, void *record)
{
    return request_make(request, record);
}

int board_request_value(BoardRequest request, int value)
{
    return request_make(request, value);
}

#include "external/hw_control.h"

#include "external/board_device.h"

int NORVHWSetEventSource(int value)
{
    if (value == -1)
        return 0;
    int32_t source[2] = {value, 0};
    return board_request(NORVIO_SET_EVENT_SOURCE, source) < 0 ? -1 : 0;
}

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include "applets/mantool.h"
#include "autocleanup/unique.h"

static constexpr unsigned kTimeout_ms = 1000;

// The vendor's command of a flash controller that lets it come back at high speed.
int man_usb3_downgrade(int argc, char *argv[])
{
    if (argc != 3)
        return mantool_usage_error();
    const UniqueFd device(open(argv[2], O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!device) {
        printf("Cannot open %s\n", argv[2]);
        return -1;
    }
    uint8_t command[12] = {0x06, 0xcd};
    sg_io_hdr request = {};
    request.interface_id = 'S';
    request.dxfer_direction = SG_DXFER_NONE;
    request.cmd_len = sizeof(command);
    request.cmdp = command;
    request.timeout = kTimeout_ms;
    if (ioctl(device.get(), SG_IO, &request) < 0) {
        printf("Send command error: %d\n", errno);
        return -1;
    }
    if (request.status != 0) { // the host's is not looked at: the device leaves the bus and comes back
        printf("Send command error: %d\n", request.status);
        return -1;
    }
    return 0;
}

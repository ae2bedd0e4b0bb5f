/*
 * Holds a board driver against the list of requests.
 *   usage: board_check [--change] DEVICE
 * Exit status 0 when all answers were good, 1 when some were not, 2 when the device cannot be asked.
 */
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "board.h"
#include "check.h"

static int ask(void *context, uint32_t request, uintptr_t argument)
{
    struct pollfd device = {.fd = *(const int *)context, .events = POLLIN};

    /* The request for an event may wait for one. */
    if (strcmp(board_request_find(request)->name, "event_get") == 0 && poll(&device, 1, 0) != 1)
        return -EAGAIN;
    return ioctl(device.fd, request, argument) < 0 ? -errno : 0;
}

static void tell(void *context, const char *line)
{
    (void)context;
    puts(line);
}

int main(int argc, char *argv[])
{
    const int change = argc == 3 && strcmp(argv[1], "--change") == 0;
    struct board_device device = {ask, tell, NULL};
    int fd, bad;

    if (argc != 2 + change || argv[argc - 1][0] == '-') {
        fprintf(stderr, "usage: board_check [--change] DEVICE\n");
        return 2;
    }
    fd = open(argv[argc - 1], O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        fprintf(stderr, "board_check: %s: %s\n", argv[argc - 1], strerror(errno));
        return 2;
    }
    device.context = &fd;
    bad = board_check(&device, change);
    printf("%d of %d requests odd or failed\n", bad, BOARD_REQUESTS);
    close(fd);
    return bad == 0 ? 0 : 1;
}

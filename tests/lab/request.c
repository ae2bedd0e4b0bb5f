/*
 * Sends one request to a device of the guest.
 *
 *   usage: request [-w MILLISECONDS] DEVICE CODE [RECORD]
 *
 * RECORD is in hexadecimal digits, and is printed as it comes back; "bad" stands for an address where nothing is. -w
 * waits until the device is readable. Ends with 0; with the errno value of what failed; with 255 when the wait is over.
 */
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

int main(int argc, char *argv[])
{
    unsigned char record[1024] = {0};
    size_t bytes = 0;
    int wait_ms = -1, fd;

    if (argc > 2 && strcmp(argv[1], "-w") == 0) {
        wait_ms = atoi(argv[2]);
        argv += 2;
        argc -= 2;
    }
    if (argc < 3)
        return 254;
    for (const char *at = argc > 3 ? argv[3] : ""; bytes < sizeof record && sscanf(at, "%2hhx", &record[bytes]) == 1;
         at += 2)
        bytes++;
    fd = open(argv[1], O_RDWR | O_CLOEXEC);
    if (fd < 0)
        fd = open(argv[1], O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    if (wait_ms >= 0) {
        struct pollfd ready = {.fd = fd, .events = POLLIN};

        if (poll(&ready, 1, wait_ms) != 1)
            return 255;
    }
    if (ioctl(fd, strtoul(argv[2], NULL, 0), argc > 3 && strcmp(argv[3], "bad") == 0 ? (void *)16 : record) < 0)
        return errno;
    for (size_t i = 0; i < bytes; i++)
        printf("%02x", record[i]);
    printf("\n");
    return 0;
}

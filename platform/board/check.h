/* The request list the other way round: a device is asked, and its answers are judged. */
#ifndef NORV_PLATFORM_BOARD_CHECK_H
#define NORV_PLATFORM_BOARD_CHECK_H

#include <stdint.h> // NOLINT(modernize-deprecated-headers): C++ reads it too

#ifdef __cplusplus
extern "C" {
#endif

struct board_device {
    /* Passes a request on, with a value or an address as ioctl takes it. Returns 0 or more, or a negative errno value.
     */
    int (*ask)(void *context, uint32_t request, uintptr_t argument);
    /* Takes one line of the report, without newline. */
    void (*tell)(void *context, const char *line);
    void *context;
};

/*
 * Asks every request that does no harm, in the order of their codes, and tells one line for each:
 *
 *   ok       0xc0044b10 temperature -> 38
 *   odd      0xc0044b18 fan_count -> -1: no number of fans
 *   failed   0xc0044b0d cpld_first = -EIO
 *   left out 0xc0044bce gpio_write: what a pin does is the board's own matter
 *
 * Requests that change something are asked only with `change`; what can be read is written back as it was.
 * Returns how many were odd or failed.
 */
int board_check(const struct board_device *device, int change);

#ifdef __cplusplus
}
#endif
#endif

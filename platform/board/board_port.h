/* What the board needs of its surroundings, in a program and in the kernel. */
#ifndef NORV_PLATFORM_BOARD_PORT_H
#define NORV_PLATFORM_BOARD_PORT_H

#ifdef __KERNEL__
#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/string.h>
#include <linux/types.h>
#else /* NOLINTBEGIN(modernize-deprecated-headers): C++ reads it too */
#include <errno.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#endif /* NOLINTEND(modernize-deprecated-headers) */

#define BOARD_PRINTF(text, first) __attribute__((format(printf, text, first)))

#endif

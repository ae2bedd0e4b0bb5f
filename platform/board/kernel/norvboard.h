/*
 * The kernel module that carries the board in a virtual machine: device nodes, sysctl files, attributes of SCSI hosts
 * and the two requests that md does not know. It stays until the machine goes down: what hooks into other modules is
 * never taken out again, so that nobody can be caught inside.
 */
#ifndef NORV_PLATFORM_BOARD_KERNEL_NORVBOARD_H
#define NORV_PLATFORM_BOARD_KERNEL_NORVBOARD_H

#include <linux/mutex.h>

#include "board.h"

/* The one board, and the lock that is held around every call on it. */
extern struct board norv_board;
extern struct mutex norv_board_lock;

/* Adds a line to the transcript. Takes the lock. */
void norv_note(const char *format, ...) BOARD_PRINTF(1, 2);

/* Each part comes up with one call, which returns 0 or a negative errno value and then has left nothing behind. */
int norv_devices_add(void);
int norv_sysctls_add(void);
int norv_hosts_add(void);
int norv_md_requests_add(void);

/* The way back of those that can go, for a module that does not come up whole. */
void norv_devices_remove(void);
void norv_sysctls_remove(void);
void norv_hosts_remove(void);

#endif

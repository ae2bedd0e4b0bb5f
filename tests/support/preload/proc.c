/*
 * Sanitizers look for their process below /proc by its number. A box's /proc is made of plain files, so each process
 * adds a link to itself.
 */
#define _GNU_SOURCE
#include <pthread.h>
#include <stdio.h>

#include "tell.h"

static void link_add(void)
{
    char link[32], target[48];
    const int pid = (int)RAW(getpid);
    snprintf(link, sizeof(link), "/proc/%d", pid);
    snprintf(target, sizeof(target), BOX_PROC "/%d", pid);
    RAW(symlink, target, link);
}

__attribute__((constructor)) static void process_begin(void)
{
    link_add();
    pthread_atfork(NULL, NULL, link_add);
}

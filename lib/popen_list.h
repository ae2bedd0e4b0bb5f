// The open pipes of this process.
#pragma once

#include <cstdio>
#include <sys/types.h>

struct PopenEntry {
    FILE *stream;
    pid_t pid;
    PopenEntry *next;
};
extern PopenEntry *popen_list;

// The spin word that guards the list. It is held only for changes and while a child starts. That child walks the list
// without it: the word it would wait for is its own.
void popen_list_take();
void popen_list_give();

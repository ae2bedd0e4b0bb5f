#include <cstdlib>

#include "lib/popen_list.h"
#include "lib/proc.h"
#include "lib/proc_wait.h"
#include "lib/report.h"

// Closes the stream and takes its node off the list. Returns the pid; -1 when there is none.
static pid_t stream_close(FILE *fp)
{
    pid_t pid = -1;
    popen_list_take();
    for (PopenEntry **link = &popen_list; *link != nullptr; link = &(*link)->next) {
        PopenEntry *entry = *link;
        if (entry->stream != fp)
            continue;
        pid = entry->pid;
        fclose(fp);
        *link = entry->next;
        free(entry);
        break;
    }
    popen_list_give();
    return pid;
}

int NLIBCPclose(FILE *fp)
{
    if (fp == nullptr)
        return fail(kErrBadParameter);
    const SigchldHold hold; // from before the close, which is what ends many a program
    const pid_t pid = stream_close(fp);
    const int status = pid > 0 ? child_wait(pid) : -1;
    if (status < 0)
        return fail(kErrClose);
    return status;
}

#include <cerrno>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

#include "applets/raidtool.h"
#include "lib/proc.h"
#include "lib/proc_wait.h"
#include "lib/report.h"
#include "storage/disk_format_type.h"
#include "storage/partition.h"

// `mask`: signals that the programs of the work are to have blocked.
static pid_t child_start(const DiskWork &task, int index, const sigset_t &mask)
{
    const pid_t pid = NLIBCFork(kForkNullStreams | kForkCloseAll);
    if (pid == 0) {
        sigprocmask(SIG_SETMASK, &mask, nullptr);
        _exit(task.work(task, index));
    }
    if (pid < 0)
        NORV_LOG(LOG_ERR, "Failed to fork.");
    return pid;
}

static void child_collect(pid_t pid, const char *disk, int *result)
{
    int status = 0;
    if (TEMP_FAILURE_RETRY(waitpid(pid, &status, 0)) != pid)
        NORV_LOG(LOG_ERR, "Wait pid failed. pid: %d disk: %s", pid, disk);
    else if (!WIFEXITED(status))
        NORV_LOG(LOG_ERR, "Child exit not normally, pid: %d disk: %s", pid, disk);
    else
        *result = WEXITSTATUS(status);
}

int disks_work(const DiskWork &task, int *results)
{
    const int count = task.disks->nItem;
    const UniqueBlock<int> pids(static_cast<pid_t *>(calloc(static_cast<size_t>(count) + 1, sizeof(pid_t))));
    if (!pids)
        return fail(kErrOutOfMemory);
    const SigchldHold hold;
    for (int i = 0; i < count; i++)
        pids.get()[i] = task.chosen == nullptr || task.chosen(task, i) ? child_start(task, i, hold.mask_before()) : -1;
    for (int i = 0; i < count; i++)
        if (pids.get()[i] > 0)
            child_collect(pids.get()[i], task.disks->items[i], &results[i]);
    return 0;
}

static int type_work(const DiskWork &task, int index)
{
    return disk_format_type(task.disks->items[index], task.version, task.partitions);
}

int format_types_find(const NLIBSZLIST *disks, int version, int *types)
{
    UniqueList partitions(NLIBCSzListAlloc(4096));
    if (partitions && partition_path_enum(nullptr, partitions.address()) < 0)
        partitions.reset();
    for (int i = 0; i < disks->nItem; i++)
        types[i] = kDiskFormatLeave;
    return disks_work({.disks = disks,
                       .work = type_work,
                       .chosen = nullptr,
                       .version = version,
                       .partitions = partitions.get(),
                       .types = nullptr},
                      types);
}

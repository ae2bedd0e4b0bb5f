#include "platform/sfdisk/actions.h"
#include "platform/sfdisk/kernel.h"
#include "platform/sfdisk/label.h"

Fault partition_add(const Disk &disk, const PartitionRequested &requested)
{
    PartitionTable table;
    Fault fault = label_read(disk, &table);
    if (fault == Fault::kNone)
        fault = table_add(&table, requested);
    // The kernel goes before the disk, since it may refuse. It may also remember a partition that the label has lost.
    if (fault == Fault::kNone)
        fault = kernel_remove(disk, requested.number);
    if (fault == Fault::kNone)
        fault = kernel_add(disk, *table_find(table, requested.number));
    if (fault != Fault::kNone)
        return fault;
    fault = label_write(disk, table);
    if (fault != Fault::kNone) {
        const int saved_errno = errno;
        static_cast<void>(kernel_remove(disk, requested.number));
        errno = saved_errno;
    }
    return fault;
}

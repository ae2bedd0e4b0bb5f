#include "platform/sfdisk/actions.h"
#include "platform/sfdisk/kernel.h"
#include "platform/sfdisk/label.h"

static constexpr int kNumberLimit = 255; // of a partition that the kernel can know

// Tells the kernel of the partitions `first` to `last` of `table` again.
static void kernel_restore(const Disk &disk, const PartitionTable &table, int first, int last)
{
    const int saved_errno = errno;
    for (const Partition &partition : table.partitions)
        if (partition.number >= first && partition.number <= last)
            static_cast<void>(kernel_add(disk, partition));
    errno = saved_errno;
}

// The kernel goes first, since it refuses to forget a partition that is in use.
static Fault kernel_remove_range(const Disk &disk, const PartitionTable &table, int first, int last)
{
    for (int number = first; number <= last; number++) {
        const Fault fault = kernel_remove(disk, number);
        if (fault != Fault::kNone) {
            kernel_restore(disk, table, first, number - 1);
            return fault;
        }
    }
    return Fault::kNone;
}

Fault partitions_remove(const Disk &disk, int first, int last)
{
    PartitionTable table;
    Fault fault = label_read(disk, &table);
    PartitionTable next = table;
    if (fault == Fault::kNone)
        fault = table_remove(&next, first, last);
    if (fault != Fault::kNone || next.partitions.size() == table.partitions.size())
        return fault;
    fault = kernel_remove_range(disk, table, first, last);
    if (fault != Fault::kNone)
        return fault;
    fault = label_write(disk, next);
    if (fault != Fault::kNone)
        kernel_restore(disk, table, first, last);
    return fault;
}

Fault partitions_remove_all(const Disk &disk)
{
    PartitionTable table;
    Fault fault = label_read(disk, &table);
    if (fault == Fault::kRead)
        return fault;
    // Partitions that the label has lost may still be known to the kernel, hence all numbers.
    fault = kernel_remove_range(disk, table, 1, kNumberLimit);
    if (fault != Fault::kNone)
        return fault;
    fault = label_erase(disk);
    if (fault != Fault::kNone)
        kernel_restore(disk, table, 1, kNumberLimit);
    return fault;
}

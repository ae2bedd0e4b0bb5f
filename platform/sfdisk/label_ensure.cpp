#include "platform/sfdisk/actions.h"
#include "platform/sfdisk/label.h"

Fault label_ensure(const Disk &disk)
{
    PartitionTable table;
    const Fault fault = label_read(disk, &table);
    if (fault != Fault::kNone || table.kind != LabelKind::kNone)
        return fault;
    // Headers of a GPT that sector 0 announces no more would come to light again with the next GPT tool.
    if (const Fault erased = gpt_erase(disk); erased != Fault::kNone)
        return erased;
    return label_write(disk, table_new(disk.sectors));
}

#include <cctype>
#include <cinttypes>
#include <cstring>

#include "platform/sfdisk/actions.h"
#include "platform/sfdisk/label.h"

Fault partitions_list(const Disk &disk, const char *path, int number, FILE *out)
{
    PartitionTable table;
    if (const Fault fault = label_read(disk, &table); fault != Fault::kNone)
        return fault;
    if (table.kind == LabelKind::kNone)
        return Fault::kNoLabel;
    if (number != 0 && table_find(table, number) == nullptr)
        return Fault::kNoSuchPartition;
    const bool ends_in_digit = isdigit(static_cast<unsigned char>(path[strlen(path) - 1])) != 0;
    for (const Partition &partition : table.partitions)
        if (number == 0 || partition.number == number)
            fprintf(out, "%s%s%d %" PRIu64 " %" PRIu64 " %x\n", path, ends_in_digit ? "p" : "", partition.number,
                    partition.start, partition.sectors, static_cast<unsigned>(partition.type));
    return Fault::kNone;
}

// The partition tool of the appliance. Exit status: 0 done; 1 not done, and the disk is as before; 2 a wrong command
// line.
#include <cstdio>
#include <cstring>

#include "platform/sfdisk/actions.h"
#include "platform/sfdisk/options.h"

static Fault run(const Options &options)
{
    Disk disk;
    const auto access = options.action == Action::kList ? DiskAccess::kRead : DiskAccess::kWrite;
    if (const Fault fault = disk_open(options.disk_path, access, &disk); fault != Fault::kNone)
        return fault;
    switch (options.action) {
    case Action::kList:
        return partitions_list(disk, options.disk_path, options.partition.number, stdout);
    case Action::kEnsureLabel:
        return label_ensure(disk);
    case Action::kAdd:
        return partition_add(disk, options.partition);
    case Action::kRemove:
        return partitions_remove(disk, options.remove_first, options.remove_last);
    case Action::kRemoveAll:
        return partitions_remove_all(disk);
    }
    return Fault::kNone;
}

int main(int argc, char *argv[])
{
    Options options;
    if (!options_parse(argc, argv, &options)) {
        fputs(kUsage, stderr);
        return 2;
    }
    const Fault fault = run(options);
    if (fault == Fault::kNone)
        return 0;
    const FaultText &why = fault_text(fault);
    fprintf(stderr, "sfdisk: %s %s%s%s\n", options.disk_path, why.text, why.has_errno ? ": " : "",
            why.has_errno ? strerror(errno) : "");
    return 1;
}

#include "platform/sfdisk/kernel.h"

#include <unistd.h>

// The members of an array that was stopped a moment ago are given back by a worker of the kernel.
static constexpr int kBusyTries = 10;
static constexpr useconds_t kBusyWaitUs = 50'000;

static Fault request(const Disk &disk, int operation, blkpg_partition *partition)
{
    for (int attempt = 1; disk.request(disk.fd.get(), operation, partition) != 0; attempt++) {
        if (errno != EBUSY)
            return Fault::kKernel;
        if (attempt == kBusyTries)
            return Fault::kBusy;
        usleep(kBusyWaitUs);
    }
    return Fault::kNone;
}

Fault kernel_add(const Disk &disk, const Partition &partition)
{
    if (disk.request == nullptr)
        return Fault::kNone;
    // Of an extended partition the kernel shows two sectors, room for a boot loader.
    const uint64_t sectors = type_is_extended(partition.type) ? 2 : partition.sectors;
    blkpg_partition known = {};
    known.pno = partition.number;
    known.start = static_cast<long long>(partition.start) * static_cast<int>(kSectorBytes);
    known.length = static_cast<long long>(sectors) * static_cast<int>(kSectorBytes);
    return request(disk, BLKPG_ADD_PARTITION, &known);
}

Fault kernel_remove(const Disk &disk, int number)
{
    if (disk.request == nullptr)
        return Fault::kNone;
    blkpg_partition known = {};
    known.pno = number;
    const Fault fault = request(disk, BLKPG_DEL_PARTITION, &known);
    return fault == Fault::kKernel && errno == ENXIO ? Fault::kNone : fault;
}

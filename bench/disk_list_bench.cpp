// Classifying and sorting what the kernel lists of 100 disks with 100 partitions each, against reading the list.
#include <benchmark/benchmark.h>

#include <string>
#include <utility>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "storage/partition.h"
#include "tests/fuzz/file_root.h"

namespace
{

constexpr int kDisks = 100, kPartitions = 100;
constexpr char kList[] = "/proc/partitions";

std::string disk_name(int disk)
{
    std::string name = "sd";
    if (disk >= 26)
        name += static_cast<char>('a' + disk / 26 - 1);
    return name + static_cast<char>('a' + disk % 26);
}

void machine_make()
{
    static bool is_made = false;
    if (std::exchange(is_made, true))
        return;
    std::string list = "major minor  #blocks  name\n\n";
    for (int i = 0; i < kDisks * (kPartitions + 1); i++) { // in no order
        const int row = static_cast<int>(i * 2654435761LL % (kDisks * (kPartitions + 1)));
        const int partition = row / kDisks;
        list += "   8 " + std::to_string(row) + " 4194304 " + disk_name(row % kDisks) +
                (partition == 0 ? "" : std::to_string(partition)) + "\n";
    }
    file_root_enter();
    file_root_put("/etc.defaults/norvinfo.conf",
                  "maxdisks=\"100\"\ninternalportcfg=\"0xffff\"\nesataportcfg=\"0x30000\"\nusbportcfg=\"0xfc0000\"\n");
    file_root_put(kList, list);
}

void list_read(benchmark::State &state)
{
    machine_make();
    char line[128];
    for (auto _ : state) {
        const UniqueFile file(fopen(kList, "re"));
        while (fgets(line, sizeof(line), file.get()) != nullptr)
            benchmark::DoNotOptimize(line);
    }
}

void disks_list(benchmark::State &state)
{
    static constexpr PartitionFilter kInternal = {nullptr, kDiskContainerInternal};
    machine_make();
    int count = 0;
    for (auto _ : state) {
        UniqueList list(NLIBCSzListAlloc(4096));
        count = partition_path_enum(&kInternal, list.address());
    }
    if (count < kDisks)
        state.SkipWithError("not all were found");
    state.counters["found"] = count;
}
BENCHMARK(list_read)->Unit(benchmark::kMillisecond);
BENCHMARK(disks_list)->Unit(benchmark::kMillisecond);

} // namespace

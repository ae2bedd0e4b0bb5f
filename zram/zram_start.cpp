#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/string.h"
#include "swap/swap.h"
#include "zram/zram.h"

namespace
{

constexpr unsigned kZramMajor = 252; // of the appliance's kernel
constexpr int kPriority = 1;         // before any disk

// Sizes a device unless it has a size. Returns 0; -1.
int size_set(int index, uint64_t size)
{
    char path[64], digits[32];
    if (NLIBCStrSnprintf(path, sizeof(path), "/sys/block/zram%d/disksize", index) < 0)
        return -1;
    const UniqueFd file(open(path, O_RDWR | O_CLOEXEC));
    char first;
    if (!file || read(file.get(), &first, 1) != 1)
        return fail(file ? kErrRead : kErrOpen);
    if (first != '0')
        return 0;
    const int length = NLIBCStrSnprintf(digits, sizeof(digits), "%ju", uintmax_t{size});
    if (length < 0 || pwrite(file.get(), digits, static_cast<size_t>(length), 0) != length)
        return fail(kErrWrite);
    return 0;
}

void device_on(int index)
{
    const ZramPath path = zram_path(index);
    if (!file_is_block_device(path.text))
        static_cast<void>(mknod(path.text, S_IFBLK | 0600, makedev(kZramMajor, static_cast<unsigned>(index))));
    if (is_swap_on(path.text) == 0)
        static_cast<void>(swap_make_and_on(path.text, kPriority));
}

} // namespace

int zram_start()
{
    struct sysinfo memory;
    const int cores = zram_cores_get();
    if (cores < 0)
        return -1;
    if (sysinfo(&memory) != 0)
        return fail(kErrSystemCall);
    const uint64_t size = zram_size(uint64_t{memory.totalram} * memory.mem_unit, static_cast<uint32_t>(cores));
    for (int index = 0; index < cores; index++)
        if (size_set(index, size) == 0)
            device_on(index);
    return 0;
}

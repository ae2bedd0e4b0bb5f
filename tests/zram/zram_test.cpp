#include "zram/zram.h"

#include <gtest/gtest.h>

#include "tests/support/private_root.h"

namespace
{

constexpr std::uint64_t kMiB = 1 << 20, kGiB = kMiB << 10, kTiB = kGiB << 10;

TEST(Zram, Size)
{
    static_assert(zram_size(8 * kGiB, 4) == 1229 * kMiB); // 1228.8
    static_assert(zram_size(100 * kMiB, 1) == 61 * kMiB); // even where the share is whole MiB
    static_assert(zram_size(5 * kTiB / 3 + 1, 1) == kTiB);
    static_assert(zram_size(5 * kTiB / 3 + 2 * kMiB, 1) == kTiB + 2 * kMiB);
}

TEST(Zram, Cores)
{
    const std::string kLong(150, 'x');
    const struct {
        std::string text;
        int cores;
    } kCases[] = {
        {"processor\t: 0\ncpu cores\t: 6\nprocessor\t: 1\ncpu cores\t: 4\n", 6},
        {"processor\t: 0\n\nprocessor\t: 1\n", 2},
        {"processor\t: 0\ncpu cores\t:\nprocessor\t: 1\ncpu cores\t: 3", 3},
        {"flags : " + kLong + "cpu cores : 5\n" + "processor : 0\n", 5}, // a long line is several
        {"", -1},
    };
    const PrivateRoot root;
    for (const auto &[text, cores] : kCases) {
        root.write("/proc/cpuinfo", text);
        EXPECT_EQ(root.run([] { return zram_cores_get(); }), cores) << text;
    }
}

} // namespace

// How a system on the disks may differ from this one.
#include <cstring>
#include <gtest/gtest.h>

#include "install/system_status.h"
#include "tests/support/private_root.h"

namespace
{

TEST(SystemMigration, Bits)
{
    const struct {
        const char *own_conf, *disk_conf, *platform;
        int endian, bits, max_align;
        uint32_t expected;
        const char *log = "";
    } kRows[] = {
        {"unique=n_x_1\n", "", "x", 2, 64, 8, 0},
        {"unique=n_x_1\n", "", "x", 1, 64, 4, kMigrateEndian | kMigrateAlignment},
        {"unique=n_x_1\n", "", "", 0, 0, 0, kMigrateEndian | kMigrateAlignment | kMigratePlatform},
        {"unique=n_88f6281_1\n", "", "88f6282", 2, 32, 8, 0}, // two that are alike
        {"unique=n_88f6281_1\n", "", "88f5281", 2, 32, 8, kMigratePlatform},
        {"unique=n\n", "", "x", 2, 64, 8, 0, "failed to get platform from /etc.defaults/norvinfo.conf errno=[0x"},
        {"unique=n_x_1\nnvr=yes\n", "nvr=Yes, and this model records as well\n", "x", 2, 64, 8, 0},
        {"unique=n_x_1\nnvr=ye\n", "nvr=yes\n", "x", 2, 64, 8, kMigrateNvr},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(testing::Message() << row.own_conf << row.disk_conf << row.platform);
        const PrivateRoot root;
        root.write("/etc.defaults/norvinfo.conf", row.own_conf);
        root.write("/tmpRoot/etc.defaults/norvinfo.conf", row.disk_conf);
        root.write("/proc/cmdline", "quiet\n");
        root.run([&] {
            strcpy(gDiskSysInfo.platform, row.platform);
            gDiskSysInfo.endian = row.endian;
            gDiskSysInfo.bits = row.bits;
            gDiskSysInfo.max_align = row.max_align;
            EXPECT_EQ(system_migration_bits(), row.expected);
        });
        const std::string log = root.log();
        EXPECT_NE(log.find(row.log), std::string::npos) << log;
    }
}

} // namespace

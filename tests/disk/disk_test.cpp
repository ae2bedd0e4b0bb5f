// Names, classes and places of disks on made-up device trees.
#include "disk/disk.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "disk/disk_place.h"
#include "lib/file.h"
#include "tests/support/adapter_chip.h"
#include "tests/support/private_root.h"

namespace
{

class Disk : public testing::Test
{
  protected:
    // Runs `body` where the model description is `conf`.
    void with(const std::string &conf, const std::function<void()> &body) const
    {
        root.write(kDefaultsPath, conf);
        root.run(body);
    }
    // Shows a device of the tree below /sys/block or /sys/class/net.
    static void link(const std::string &path, const std::string &target)
    {
        EXPECT_EQ(symlink(target.c_str(), path.c_str()), 0) << path;
    }
    PrivateRoot root;
};

TEST_F(Disk, NumbersComeOffTheNames)
{
    const struct {
        const char *conf;
        std::vector<const char *> names; // the name, without its number, and what stands before the number
        int number;
    } kCases[] = {
        {"", {"sda", "sda", "sda"}, 0},
        {"", {"/dev/sda5", "/dev/sda", "/dev/sda"}, 5},
        {"", {"sda01", "sda", "sda0"}, 1},
        {"", {"sdaa10", "sdaa", "sdaa"}, 10},
        {"", {"sata1p2", "sata", "sata"}, 1}, // no 'p' name on this model
        {"", {"nvme0n1", "nvme0n1", "nvme0n1"}, 0},
        {"", {"nvme0n1p2", "nvme0n1", "nvme0n1"}, 2},
        {"", {"nvme0n1p", "nvme0n1p"}, -1},
        {"", {"/dev/nvc1p12", "/dev/nvc1", "/dev/nvc1"}, 12},
        {"", {"sysd1p3", "sysd1", "sysd1"}, 3},
        {"supportsas=yes\n", {"sas3", "sas3", "sas3"}, 0},
        {"supportsas=yes\n", {"sata1p2", "sata1", "sata1"}, 2},
    };
    for (const auto &row : kCases)
        with(row.conf, [&row] {
            const char *name = row.names[0];
            SCOPED_TRACE(name);
            char text[64];
            EXPECT_EQ(disk_partition_num_remove(name, text, static_cast<int>(strlen(name))), -1);
            EXPECT_EQ(disk_partition_num_remove(name, text, static_cast<int>(strlen(name)) + 1), 0);
            EXPECT_STREQ(text, row.names[1]);
            EXPECT_EQ(disk_partition_num_get(name, text, sizeof(text)), row.number);
            EXPECT_STREQ(row.names.size() > 2 ? text : name, row.names.back());
        });
    with("", [] {
        char text[8];
        EXPECT_EQ(disk_partition_num_get("sda1", text, 3), -1); // "sd" is not all that stands before the number
    });
}

TEST_F(Disk, SystemHasItsDevices)
{
    static constexpr const char *kCases[][3] = {
        {"ali_nos=yes\n", "/dev/sda5", "/dev/sda3"},
        {"ali_nos=Yes\n", "/dev/sda1", "/dev/sda3"},
        {"supportraid=yes\nali_nos=yes\nsupportsas=yes\n", "/dev/md0", "/dev/md2"},
        {"supportsas=yes\n", "", ""},
    };
    for (const auto &[conf, system, data] : kCases)
        with(conf, [conf = conf, system = system, data = data] {
            SCOPED_TRACE(conf);
            char text[16] = "";
            EXPECT_EQ(disk_sys_device_path_get(text, sizeof(text)), *system != '\0' ? 0 : -1);
            EXPECT_STREQ(text, system);
            EXPECT_EQ(disk_first_data_device_path_get(text, sizeof(text)), *data != '\0' ? 0 : -1);
            EXPECT_STREQ(text, data);
        });
}

TEST_F(Disk, SizesAndSsds)
{
    root.write("/sys/block/sdc/queue/rotational", "");
    root.write("/dev/plain", "x");
    with("", [] {
        for (const char *name : {"sda1", "sdc", "/dev/none"})
            EXPECT_EQ(disk_is_ssd(name), -1) << name;
        uint64_t sectors = 7;
        EXPECT_EQ(disk_size_get("/dev/plain", &sectors), -1);
        EXPECT_EQ(disk_size_get("none", &sectors), -1);
        EXPECT_EQ(disk_size_get("log", &sectors), 0); // a socket opens with ENXIO, as a drive without a medium
        EXPECT_EQ(sectors, 7U);
    });
}

TEST_F(Disk, PlacesOfLetters)
{
    static constexpr struct {
        const char *name;
        DiskLocation place;
    } kCases[] = {
        {"/dev/sdb3", {2, kDiskContainerInternal, 0, 3, -1, 0}},
        {"sde", {5, kDiskContainerUsb, 0, 0, -1, 0}},
        {"sdj", {10, kDiskContainerEsata, 0, 0, -1, 0}},
        {"sdja1", {261, kDiskContainerExpansion, 10, 1, -1, 0}}, // letters count through
        {"sdk", {11, kDiskContainerExpansion, 11, 0, -1, 0}},    // one letter counts by itself
        {"sysd2p1", {2, kDiskContainerSystem, 0, 1, -1, 0}},
    };
    root.write("/tmp/eunitinfo_1", "EUnitDisks=sdka,sdkb\n");
    with("internalportcfg=0x3\nusbportcfg=0x10\nesataportcfg=0x600\n", [] {
        DiskLocation place;
        for (const auto &[name, expected] : kCases) {
            EXPECT_EQ(disk_path_parse(name, &place), 0) << name;
            EXPECT_EQ(memcmp(&place, &expected, sizeof(place)), 0) << name;
        }
        for (const char *name : {"hda", "norvboot", "sysd"})
            EXPECT_EQ(disk_path_parse(name, &place), -1) << name;
    });
    EXPECT_NE(root.log().find("# bad paramters: unknown device, disk path: hda\n"), std::string::npos);
}

// Port and model of an M.2 disk, and the place they give; on a card the slot is the configured one.
TEST_F(Disk, M2DisksCountByTheirPort)
{
    static constexpr struct {
        const char *port, *model;
        bool is_on_card;
        int result, index, slot;
    } kCases[] = {
        {"5\n", kProductOnboardM2Model, false, 0, 1, 0},  {"6\n", kProductOnboardM2Model, false, 0, 2, 0},
        {"7\n", kProductOnboardM2Model, false, -1, 0, 0}, {"5\n", "ANOTHER", false, -1, 0, 0},
        {"2\n", kProductM2Card0Models[0], true, 0, 2, 3},
    };
    const ProductAdapterCard &card = kProductAdapterCards[0];
    const std::string disk = adapter_device(card.disk_levels, "nvc1");
    std::string ata = disk;
    for (int i = 0; i < 5; i++)
        ata.resize(ata.rfind('/'));
    root.write(disk + "/uevent", "");
    root.write("/etc.defaults/extensionPorts", "[pci]\npci1=\"0000:00:1b.0\"\npci3=\"0000:00:1c.0\"\n");
    for (const auto &row : kCases) {
        SCOPED_TRACE(std::string(row.model) + " " + row.port);
        ProductAdapterCard chip = card;
        chip.vendor = row.is_on_card ? card.vendor : uint16_t{1};
        for (const auto &[path, content] : adapter_chip_files(chip, 0))
            root.write(path, content);
        root.write(ata + "/ata_port/ata5/port_no", row.port);
        root.write("/proc/sys/kernel/norv_hw_version", std::string(row.model) + "-j1\n");
        with("", [&] {
            std::filesystem::create_directories("/sys/block");
            unlink("/sys/block/nvc1");
            link("/sys/block/nvc1", disk);
            DiskLocation place;
            ASSERT_EQ(disk_path_parse("/dev/nvc1p2", &place), row.result);
            EXPECT_TRUE(row.result != 0 || (place.index == row.index && place.slot == row.slot &&
                                            place.partition == 2 && place.container == kDiskContainerCache));
        });
    }
    EXPECT_NE(root.log().find("# DiskInexAndSlotRemap: ANOTHER port no 5 out of expection\n"), std::string::npos);
}

} // namespace

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
#include "external/adapter_card.h"
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

struct NameCase {
    const char *name;
    const char *whole; // without its number
    const char *disk;  // before its number; NULL: refused
    int number;
};

void names_check(const NameCase &row)
{
    SCOPED_TRACE(row.name);
    char text[64];
    EXPECT_EQ(disk_partition_num_remove(row.name, text, static_cast<int>(strlen(row.name)) + 1), 0);
    EXPECT_STREQ(text, row.whole);
    EXPECT_EQ(disk_partition_num_get(row.name, text, sizeof(text)), row.number);
    if (row.disk != nullptr) {
        EXPECT_STREQ(text, row.disk);
    }
}

TEST_F(Disk, NumbersComeOffTheNames)
{
    static constexpr NameCase kCases[] = {
        {"sda", "sda", "sda", 0},
        {"/dev/sda5", "/dev/sda", "/dev/sda", 5},
        {"sda10", "sda", "sda", 10},
        {"sda01", "sda", "sda0", 1},
        {"sda0", "sda", "sda0", 0},
        {"sdaa3", "sdaa", "sdaa", 3},
        {"sas3", "sas", "sas", 3},
        {"sata1p2", "sata", "sata", 1}, // no 'p' name on this model
        {"nvme0n1", "nvme0n1", "nvme0n1", 0},
        {"nvme0n1p2", "nvme0n1", "nvme0n1", 2},
        {"nvme0n1p", "nvme0n1p", nullptr, -1},
        {"/dev/nvc1p12", "/dev/nvc1", "/dev/nvc1", 12},
        {"mmcblk0p1", "mmcblk0", "mmcblk0", 1},
        {"sysd1p3", "sysd1", "sysd1", 3},
        {"", "", nullptr, -1},
    };
    static constexpr NameCase kSasCases[] = {
        {"sas3", "sas3", "sas3", 0},       {"sas3p1", "sas3", "sas3", 1},
        {"sata1p2", "sata1", "sata1", 2},  {"/dev/usb1p1", "/dev/usb1", "/dev/usb1", 1},
        {"iscsi2", "iscsi2", "iscsi2", 0},
    };
    with("", [] {
        for (const NameCase &row : kCases)
            names_check(row);
        char text[8];
        EXPECT_EQ(disk_partition_num_remove("sda1", text, 4), -1);
        EXPECT_EQ(disk_partition_num_get("sda1", text, 3), -1); // "sd" is not all that stands before the number
        EXPECT_EQ(disk_partition_num_get("sda1", text, 1), -1);
        EXPECT_EQ(disk_partition_num_get("sda1", text, 0), -1);
    });
    EXPECT_EQ(root.log(), "3 disk_partition_num_remove.cpp:# buffer size of szDiskPath should be longer than string "
                          "length of szPartPath\n");
    with("supportsas=yes\n", [] {
        for (const NameCase &row : kSasCases)
            names_check(row);
    });
}

TEST_F(Disk, LettersCount)
{
    static constexpr struct {
        const char *name;
        int index;
    } kCases[] = {{"sda", 0}, {"/dev/sdz9", 25}, {"sdaa3", 26},           {"sdja", 260},
                  {"sd", -1}, {"sd1", -1},       {"sdzzzzzz", 321272405}, {"sdzzzzzzz", -1}}; // beyond an int
    for (const auto &[name, index] : kCases)
        EXPECT_EQ(disk_letter_index(name), index) << name;
}

TEST_F(Disk, PartitionsAreNamed)
{
    static constexpr struct {
        const char *conf, *disk, *name, *pattern;
    } kCases[] = {
        {"", "sda", "sda2", "sda*"},
        {"", "/dev/sdaa", "sdaa2", "sdaa*"},
        {"", "nvme0n1", "nvme0n1p2", "nvme0n1*"}, // the pattern knows NVMe disks only on models that have them
        {"supportnvme=yes\n", "nvme0n1", "nvme0n1p2", "nvme0n1p*"},
        {"", "sata1", "sata12", "sata1*"},
        {"supportsas=yes\n", "/dev/sas3", "sas3p2", "sas3p*"},
        {"", "/dev/nvc1", "nvc1p2", "nvc1*"},
        {"", "an_awfully_long_name_of_31_char_and_more", "an_awfully_long_name_of_31_char2", nullptr},
    };
    for (const auto &row : kCases)
        with(row.conf, [&row] {
            SCOPED_TRACE(row.disk);
            char text[64];
            EXPECT_EQ(disk_device_partition_name_get(row.disk, 2, text, sizeof(text)), 0);
            EXPECT_STREQ(text, row.name);
            EXPECT_EQ(disk_device_partition_path_get(row.disk, 2, text, sizeof(text)), 0);
            EXPECT_EQ(text, std::string("/dev/") + row.name);
            if (row.pattern != nullptr) {
                EXPECT_EQ(disk_device_partition_glob_get(row.disk, text, sizeof(text)), 0);
                EXPECT_STREQ(text, row.pattern);
            }
        });
    char text[8];
    EXPECT_EQ(root.log(), "");
    EXPECT_EQ(disk_device_partition_name_get("sda", 0, text, sizeof(text)), -1);
    EXPECT_EQ(disk_device_partition_name_get(nullptr, 1, text, sizeof(text)), -1);
    EXPECT_EQ(disk_device_partition_path_get("sda", 1, nullptr, sizeof(text)), -1);
    with("", [] {
        char name[4];
        EXPECT_EQ(disk_device_partition_name_get("sda", 1, name, sizeof(name)), -1); // no room for the NUL
        EXPECT_EQ(disk_device_partition_path_get("/dev/norvboot", 1, name, sizeof(name)), -1);
        EXPECT_EQ(disk_device_partition_glob_get(nullptr, name, sizeof(name)), -1);
    });
    const std::string log = root.log();
    EXPECT_NE(log.find("cpp:# we don't generate norvboot partition name here\n"), log.npos) << log;
    EXPECT_NE(log.find("cpp:# Invalid input\n"), log.npos) << log;
}

TEST_F(Disk, SystemHasItsDevices)
{
    static constexpr struct {
        const char *conf, *system, *data;
    } kCases[] = {
        {"", "/dev/sda1", "/dev/sda3"},
        {"ali_nos=yes\n", "/dev/sda5", "/dev/sda3"},
        {"ali_nos=Yes\n", "/dev/sda1", "/dev/sda3"},
        {"supportraid=yes\nali_nos=yes\nsupportsas=yes\n", "/dev/md0", "/dev/md2"},
        {"supportsas=yes\n", nullptr, nullptr},
    };
    for (const auto &row : kCases)
        with(row.conf, [&row] {
            SCOPED_TRACE(row.conf);
            char text[16] = "";
            EXPECT_EQ(disk_sys_device_path_get(text, sizeof(text)), row.system != nullptr ? 0 : -1);
            EXPECT_STREQ(text, row.system != nullptr ? row.system : "");
            EXPECT_EQ(disk_first_data_device_path_get(text, sizeof(text)), row.data != nullptr ? 0 : -1);
            EXPECT_STREQ(text, row.data != nullptr ? row.data : "");
            EXPECT_EQ(disk_sys_device_path_get(text, 8), -1);
        });
}

TEST_F(Disk, SsdIsWhatDoesNotRotate)
{
    root.write("/sys/block/sda/queue/rotational", "0\n");
    root.write("/sys/block/sdb/queue/rotational", "1\n");
    root.write("/sys/block/sdc/queue/rotational", "");
    root.write("/dev/plain", "x");
    with("", [] {
        EXPECT_EQ(disk_is_ssd("/dev/sda"), 1);
        EXPECT_EQ(disk_is_ssd("sdb"), 0);
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
        {"sda\n", {1, kDiskContainerInternal, 0, 0, -1, 0}},
        {"sde", {5, kDiskContainerUsb, 0, 0, -1, 0}},
        {"sdj", {10, kDiskContainerEsata, 0, 0, -1, 0}},
        {"sdja1", {261, kDiskContainerExpansion, 10, 1, -1, 0}}, // letters count through
        {"sdk", {11, kDiskContainerExpansion, 11, 0, -1, 0}},    // one letter counts by itself
        {"sysd2p1", {2, kDiskContainerSystem, 0, 1, -1, 0}},
    };
    root.write("/tmp/eunitinfo_1", "EUnitDisks=sdka,sdkb\n");
    with("internalportcfg=0x3\nusbportcfg=0x10\nesataportcfg=0x600\n", [] {
        for (const auto &[name, expected] : kCases) {
            DiskLocation place;
            EXPECT_EQ(disk_path_parse(name, &place), 0) << name;
            EXPECT_EQ(memcmp(&place, &expected, sizeof(place)), 0)
                << name << ": " << place.index << " " << place.container << " " << place.unit << " " << place.partition;
        }
        for (const char *name : {"hda", "norvboot", "isda", "sysd"}) {
            DiskLocation place;
            EXPECT_EQ(disk_path_parse(name, &place), -1) << name;
        }
    });
    EXPECT_NE(root.log().find("# bad paramters: unknown device, disk path: hda\n"), std::string::npos);
}

// nvme0n1 in a bay, nvme1n1 in a slot for cache disks, both of the first model that has bays.
TEST_F(Disk, ListsByFormFactor)
{
    const ProductNvmePort *bay = kProductNvmePorts, *slot = kProductNvmePorts;
    while (bay->kind != 2)
        bay++;
    while (slot->kind != 3 || strcmp(slot->unique, bay->unique) != 0)
        slot++;
    const auto device = [](const ProductNvmePort &port, const std::string &name) {
        return std::string("/sys/devices/pci0000:00/") + port.address + "/0000:05:00.0/nvme/nvme/" + name;
    };
    for (const std::string &path : {device(*bay, "nvme0n1"), device(*slot, "nvme1n1")})
        root.write(path + "/uevent", "");
    root.write("/proc/sys/kernel/norv_hw_version", "ANY\n");
    for (const char *name : {"nvc1", "sda", "sdb"})
        root.write(std::string("/sys/block/") + name + "/uevent", "");
    root.run([&] {
        link("/sys/block/nvme0n1", device(*bay, "nvme0n1"));
        link("/sys/block/nvme1n1", device(*slot, "nvme1n1"));
    });
    static constexpr struct {
        const char *conf, *m2, *u2, *bays;
    } kCases[] = {
        {"supportnvme=yes\n", "nvc1 nvme1n1 ", "nvme0n1 ", "sda "},
        {"supportnvme=yes\nblockm2sata=yes\n", "nvme1n1 ", "nvme0n1 ", "sda "},
        {"", "nvc1 ", "nvme0n1 nvme1n1 ", "sda "}, // on other models they count as no NVMe disks
    };
    for (const auto &row : kCases)
        with(row.conf + std::string("internalportcfg=1\nusbportcfg=2\nunique=") + bay->unique + "\n", [&row] {
            const struct {
                int (*enumerate)(PNLIBSZLIST *list);
                const char *names;
            } lists[] = {{external_disk_m2_enum, row.m2},
                         {external_disk_u2_enum, row.u2},
                         {external_disk_internal_bay_enum, row.bays}};
            for (const auto &[enumerate, names] : lists) {
                UniqueList list(NLIBCSzListAlloc(0));
                EXPECT_EQ(enumerate(list.address()), 0);
                std::string found;
                for (int i = 0; i < list.get()->nItem; i++)
                    found += std::string(NLIBCSzListGet(list.get(), i)) + " ";
                EXPECT_EQ(found, names) << row.conf;
            }
        });
}

void chip_write(const PrivateRoot &root, const ProductAdapterCard &card, uint32_t value)
{
    for (const auto &[path, content] : adapter_chip_files(card, value))
        root.write(path, content);
}

TEST_F(Disk, CardsAreToldByTheirChip)
{
    const auto card_of = [this](const std::string &name, const std::string &path, const char *shown_in) {
        root.write(path + "/uevent", "");
        return root.run([&] {
            std::filesystem::create_directories(shown_in);
            const bool is_net = strstr(shown_in, "net") != nullptr;
            const std::string shown = std::string(shown_in) + "/" + name;
            if (is_net)
                std::filesystem::create_directories(shown);
            link(is_net ? shown + "/device" : shown, path);
            const int card = adapter_card_get(is_net ? name.c_str() : ("/dev/" + name + "p1").c_str());
            unlink((is_net ? shown + "/device" : shown).c_str());
            return card;
        });
    };
    for (const ProductAdapterCard &card : kProductAdapterCards) {
        SCOPED_TRACE(card.card_id);
        chip_write(root, card, card.config.value);
        if (card.disk_levels >= 0) {
            EXPECT_EQ(card_of("nvc1", adapter_device(card.disk_levels, "nvc1"), "/sys/block"), card.card_id);
            EXPECT_EQ(card_of("sata1", adapter_device(card.disk_levels, "sata1"), "/sys/block"), card.card_id);
            EXPECT_EQ(card_of("nvc1", adapter_device(card.disk_levels + 1, "nvc1"), "/sys/block"), kAdapterCardOnboard);
        }
        if (card.nvme_levels >= 0) {
            EXPECT_EQ(card_of("nvme0n1", adapter_device(card.nvme_levels, "nvme0n1"), "/sys/block"), card.card_id);
        }
        if (card.eth_levels >= 0) {
            EXPECT_EQ(card_of("eth0", adapter_device(card.eth_levels, "port"), "/sys/class/net"), card.card_id);
        }
        if (card.config.mask != 0 && card.eth_levels >= 0) {
            chip_write(root, card, card.config.value ^ 1);
            EXPECT_EQ(card_of("eth0", adapter_device(card.eth_levels, "port"), "/sys/class/net"), kAdapterCardOnboard);
        }
    }
    EXPECT_EQ(adapter_card_get("sda"), kAdapterCardUnknown);
    EXPECT_EQ(adapter_card_get(nullptr), kAdapterCardUnknown);
    EXPECT_EQ(root.run([] { return adapter_card_get("nvc9"); }), kAdapterCardOnboard); // not there
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
    for (const auto &row : kCases) {
        SCOPED_TRACE(std::string(row.model) + " " + row.port);
        ProductAdapterCard chip = card;
        if (!row.is_on_card)
            chip.vendor = 1;
        chip_write(root, chip, 0);
        const std::string disk = adapter_device(card.disk_levels, "nvc1");
        root.write(disk + "/uevent", "");
        std::string ata = disk;
        for (int i = 0; i < 5; i++)
            ata.resize(ata.rfind('/'));
        root.write(ata + "/ata_port/ata5/port_no", row.port);
        root.write("/proc/sys/kernel/norv_hw_version", std::string(row.model) + "-j1\n");
        root.write("/etc.defaults/extensionPorts", "[pci]\npci1=\"0000:00:1b.0\"\npci3=\"0000:00:1c.0\"\n");
        with("", [&] {
            std::filesystem::create_directories("/sys/block");
            unlink("/sys/block/nvc1");
            link("/sys/block/nvc1", disk);
            DiskLocation place;
            EXPECT_EQ(disk_path_parse("/dev/nvc1p2", &place), row.result);
            if (row.result == 0) {
                EXPECT_EQ(place.index, row.index);
                EXPECT_EQ(place.slot, row.slot);
                EXPECT_EQ(place.partition, 2);
                EXPECT_EQ(place.container, kDiskContainerCache);
            }
        });
    }
    EXPECT_NE(root.log().find("# DiskInexAndSlotRemap: ANOTHER port no 5 out of expection\n"), std::string::npos);
}

} // namespace

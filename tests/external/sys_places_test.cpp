// Enclosures, SAS phys, device-mapper parents and NVMe places on made-up device trees.
#include <filesystem>
#include <gtest/gtest.h>

#include "external/enclosure.h"
#include "external/expansion_unit.h"
#include "external/mapped_disk.h"
#include "external/nvme_slot.h"
#include "external/sas.h"
#include "tests/support/outcome.h"
#include "tests/support/private_root.h"

namespace
{

void link_make(const std::string &path, const std::string &target)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::create_symlink(target, path);
}

// A SAS disk behind an expander with its enclosure, and one on the host itself.
const std::string kHost = "/sys/devices/pci0000:00/0000:01:00.0/host0", kExpander = kHost + "/port-0:0/expander-0:0";
const std::string kDisk = kExpander + "/port-0:0:4/end_device-0:0:4/target0:0:4/0:0:4:0";
const std::string kHostDisk = kHost + "/port-0:3/end_device-0:3/target0:0:1/0:0:1:0";
const std::string kSes = kExpander + "/port-0:0:24/end_device-0:0:24/target0:0:24/0:0:24:0";
const std::string kEnclosure = kSes + "/enclosure/0:0:24:0";
constexpr const char *kLamps[] = {"/Slot 04/fault", "/Slot 04/locate", "/Slot 05/fault", "/Slot 05/locate"};

void sas_tree_make(const PrivateRoot &root)
{
    for (const std::string &place :
         {kDisk + "/block/sda/size", kHostDisk + "/block/sdb/size", kExpander + "/port-0:0:4/phy-0:0:19/x",
          kExpander + "/port-0:0:4/phy-0:0:9/x", kHost + "/port-0:3/phy-0:3/x"})
        root.write(place, "");
    for (const char *lamp : kLamps)
        root.write(kEnclosure + lamp, "0\n");
    root.write(kEnclosure + "/Slot 04/slot", "4\n");
    root.write(kSes + "/vendor", "NORVESSA\n");
    root.write(kSes + "/model", "NX2400S         \n");
    root.write(kSes + "/rev", "0102\n");
    root.write("/sys/class/sas_phy/phy-0:0:10/phy_identifier", "none\n");
    root.run([] {
        link_make("/sys/block/sda/device", kDisk);
        link_make("/sys/block/sdb/device", kHostDisk);
        link_make("/sys/class/enclosure/0:0:24:0", kEnclosure);
        link_make(kEnclosure + "/device", kSes);
        link_make(kEnclosure + "/Slot 04/device", kDisk);
    });
}

TEST(SasPlace, LeadsFromTheDiskToItsPhy)
{
    PrivateRoot root;
    sas_tree_make(root);
    root.run([] {
        for (const auto &[disk, expected] : {std::pair("sda", "host0 expander-0:0 phy-0:0:9"), // the lower of two phys
                                             {"/dev/sdb", "host0  phy-0:3"},
                                             {"../block/sda", nullptr}}) {
            SasPlace place = {};
            EXPECT_EQ(sas_place_get(disk, &place), expected == nullptr ? -1 : 0) << disk;
            if (expected != nullptr) {
                EXPECT_EQ(std::string(place.host) + " " + place.expander + " " + place.phy, expected);
            }
        }
        EXPECT_EQ(sas_phy_id_get("phy-0:0:10"), -1);
        EXPECT_EQ(sas_host_model_id_get("host2"), -1);
        EXPECT_EQ(sas_expander_model_id_get("expander-0:0"), 3);
        EXPECT_EQ(outcome(sas_expander_model_id_get, "expander-0:1"), (Outcome{-1, kErrNoDevice}));
    });
    EXPECT_EQ(sas_phy_map(7, 8), 8); // behind the range
    EXPECT_EQ(sas_phy_map(3, 35), 30);
    EXPECT_EQ(sas_model_max_disks_get(7), 8);
    EXPECT_EQ(sas_model_max_disks_get(0), 0);
}

TEST(Enclosure, ShowsItsSlotsAndLights)
{
    PrivateRoot root;
    root.run([] { // no enclosure at all
        EXPECT_EQ(enclosure_disk_led_set_host(0), -1);
        EXPECT_EQ(outcome(enclosure_disk_lamp_set, "sda", kLampFault, true), (Outcome{-1, kErrNoDevice}));
    });
    sas_tree_make(root);
    const auto lamps_after = [&root](const auto &body) {
        root.run(body);
        std::string lit;
        for (const char *lamp : kLamps)
            lit += root.read(kEnclosure + lamp).substr(0, 1);
        return lit;
    };
    EXPECT_EQ(lamps_after([] {
                  Enclosure enclosure;
                  EXPECT_EQ(enclosure_get("0:0:24:0", &enclosure), 0);
                  EXPECT_STREQ(enclosure.expander, "expander-0:0");
                  EXPECT_STREQ(enclosure.model, "NX2400S");
                  EXPECT_STREQ(enclosure.revision, "0102");
                  EXPECT_EQ(enclosure_get("../enclosure/0:0:24:0", &enclosure), -1);
                  EnclosureSlot slot;
                  EXPECT_EQ(enclosure_slot_find("/dev/sda", &slot), 0);
                  EXPECT_STREQ(slot.enclosure, "0:0:24:0");
                  EXPECT_EQ(slot.number, 4);
                  EXPECT_EQ(enclosure_slot_find("sd*", &slot), -1);
                  EXPECT_EQ(enclosure_disk_lamp_set("sda", kLampLocate, true), 0);
              }),
              "0100");
    EXPECT_EQ(lamps_after([] { EXPECT_EQ(enclosure_disk_led_set_host(1), 0); }), "1111");
}

TEST(MappedDisk, LeadsToTheDeviceBelow)
{
    PrivateRoot root;
    root.write("/sys/block/dm-1/dm/name", "sas33\n");
    root.write("/sys/block/dm-0/dm/name", "sas3\n");
    root.write("/sys/block/dm-0/slaves/sdc/x", "");
    root.write("/sys/block/dm-0/slaves/sdb/x", "");
    root.write("/sys/block/sdb/size", "8\n");
    root.run([] {
        char parent[5] = "";
        for (const auto &[name, expected] : {std::pair("/dev/mapper/sas3", "dm-0"),
                                             {"/dev/dm-0", "sdb"},
                                             {"sdb", "sdb"},
                                             {"sas4", nullptr},
                                             {"a/b", nullptr}}) {
            EXPECT_EQ(mapped_disk_parent_get(name, parent, sizeof(parent)), expected == nullptr ? -1 : 0) << name;
            EXPECT_STREQ(parent, expected == nullptr ? "sdb" : expected) << name;
        }
        EXPECT_EQ(outcome(mapped_disk_parent_get, "sas3", parent, size_t{4}), (Outcome{-1, kErrBufferTooSmall}));
    });
}

TEST(NvmePlace, IsKnownByItsPort)
{
    const std::string devices = "/sys/devices/pci0000:00/", slot = devices + "0000:00:03.0/0000:05:00.0/0000:06:";
    static constexpr struct {
        const char *unique, *disk, *folder;
        int kind, index, slot;
    } kCases[] = {
        {"other", "/dev/nvme0n1p2", "0000:00:1d.4/0000:01:00.0", 3, 2, 0},
        {"other", "nvme0n1", "0000:00:01.1/0000:01:00.0", 0, 0, 0},         // another model's bay
        {"norv_x86_nv4", "nvme0n1", "0000:00:01.2/0000:01:00.0", 2, 2, -1}, // a model with rows has no others
        {"norv_x86_nv4", "nvme0n1", "0000:00:1d.4/0000:01:00.0", 0, 0, 0},
        {"other", "nvme0n1", "0000:00:03.0/0000:05:00.0", 3, 1, 2}, // in the extension slot itself
        {"other", "nvme0n1", "0000:00:03.0/0000:05:00.0/0000:06:08.0/0000:08:00.0", 3, 2, 2}, // behind a switch
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(&row - kCases);
        PrivateRoot root;
        root.write("/etc.defaults/norvinfo.conf", std::string("unique=\"") + row.unique + "\"\n");
        root.write("/etc.defaults/extensionPorts", "[pci]\npci2=\"0000:00:03.0\"\n");
        const std::string disk = devices + row.folder + "/nvme/nvme0/nvme0n1";
        root.write(disk + "/size", "8\n");
        for (const char *port : {"04", "08", "0c"})
            root.write(slot + port + ".0/class", "0x060400\n");
        root.write(slot + "01.0/class", "0x088000\n"); // no bridge
        root.run([&] {
            link_make("/sys/block/nvme0n1", disk);
            NvmePlace place = {};
            EXPECT_EQ(nvme_place_get(row.disk, &place), row.kind == 0 ? -1 : 0);
            EXPECT_EQ(place.kind, row.kind);
            EXPECT_EQ(place.index, row.index);
            EXPECT_EQ(place.slot, row.slot);
        });
    }
}

TEST(ExpansionUnit, ListsItsDisks)
{
    PrivateRoot root;
    root.write("/tmp/eunitinfo_1", "EUnitModel=\"NX4R-1\"\nEUnitDisks=\"sdja,sdjb\"\n");
    root.write("/tmp/eunitinfo_2", "EUnitModel=\"NX-5-2\"\nEUnitDisks=\"sdk\"\n");
    root.write("/tmp/eunitinfo_3", "EUnitModel=\"NX5-3\"\n");
    root.run([] {
        char names[14];
        EXPECT_EQ(expansion_unit_disks_get(names, sizeof(names)), 0);
        EXPECT_STREQ(names, "sdja,sdjb,sdk");
        EXPECT_EQ(expansion_unit_disks_get(names, sizeof(names) - 1), -1);
        ExpansionUnitPlace place = {};
        EXPECT_EQ(expansion_unit_place_get("sdk", &place), 1);
        EXPECT_STREQ(place.model, "NX-5");
        EXPECT_EQ(place.unit, 2);
    });
}

} // namespace

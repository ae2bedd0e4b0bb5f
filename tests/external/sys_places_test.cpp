// Enclosures, SAS phys, device-mapper parents and NVMe places on made-up device trees.
#include <filesystem>
#include <gtest/gtest.h>

#include "autocleanup/unique.h"
#include "external/enclosure.h"
#include "external/expansion_unit.h"
#include "external/mapped_disk.h"
#include "external/nvme_slot.h"
#include "external/sas.h"
#include "lib/report.h"
#include "tests/support/private_root.h"

namespace
{

constexpr char kAdapter[] = "/sys/devices/pci0000:00/0000:00:01.0/0000:01:00.0";

void link_make(const std::string &path, const std::string &target)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::create_symlink(target, path);
}

// A SAS disk behind an expander with its enclosure, and one on the host itself.
void sas_tree_make(const PrivateRoot &root)
{
    const std::string host = std::string(kAdapter) + "/host0", expander = host + "/port-0:0/expander-0:0";
    const std::string disk = expander + "/port-0:0:4/end_device-0:0:4/target0:0:4/0:0:4:0";
    const std::string ses = expander + "/port-0:0:24/end_device-0:0:24/target0:0:24/0:0:24:0";
    root.write(disk + "/block/sda/size", "8\n");
    root.write(expander + "/port-0:0:4/phy-0:0:19/x", "");
    root.write(expander + "/port-0:0:4/phy-0:0:9/x", "");
    root.write(host + "/port-0:3/end_device-0:3/target0:0:1/0:0:1:0/block/sdb/size", "8\n");
    root.write(host + "/port-0:3/phy-0:3/x", "");
    root.write("/sys/devices/pci0000:00/0000:00:17.0/ata1/host1/target1:0:0/1:0:0:0/block/sdc/size", "8\n");
    root.write("/sys/class/sas_phy/phy-0:0:9/phy_identifier", "9\n");
    root.write("/sys/class/sas_phy/phy-0:0:10/phy_identifier", "none\n");
    root.write(ses + "/vendor", "NORVESSA\n");
    root.write(ses + "/model", "NX2400S         \n");
    root.write(ses + "/rev", "0102\n");
    for (const char *slot : {"Slot 04", "Slot 05"})
        for (const char *lamp : {"fault", "locate"})
            root.write(ses + "/enclosure/0:0:24:0/" + slot + "/" + lamp, "0\n");
    root.write(ses + "/enclosure/0:0:24:0/Slot 04/slot", "4\n");
    for (const auto &[name, value] :
         {std::pair("vendor", "0x1000\n"), std::pair("device", "0x0097\n"), std::pair("subsystem_vendor", "0x1b4b\n"),
          std::pair("subsystem_device", "0x2001\n")})
        root.write(std::string(kAdapter) + "/" + name, value);
    root.run([&] {
        link_make("/sys/block/sda", disk + "/block/sda");
        link_make(disk + "/block/sda/device", disk);
        link_make("/sys/block/sdb", host + "/port-0:3/end_device-0:3/target0:0:1/0:0:1:0/block/sdb");
        link_make("/sys/block/sdb/device", host + "/port-0:3/end_device-0:3/target0:0:1/0:0:1:0");
        link_make("/sys/block/sdc", "/sys/devices/pci0000:00/0000:00:17.0/ata1/host1/target1:0:0/1:0:0:0/block/sdc");
        link_make("/sys/block/sdc/device", "/sys/devices/pci0000:00/0000:00:17.0/ata1/host1/target1:0:0/1:0:0:0");
        link_make("/sys/class/scsi_host/host0/device", host);
        link_make("/sys/class/scsi_host/host1/device", "/sys/devices/pci0000:00/0000:00:17.0/ata1/host1");
        link_make("/sys/class/enclosure/0:0:24:0", ses + "/enclosure/0:0:24:0");
        link_make(ses + "/enclosure/0:0:24:0/device", ses);
        link_make(ses + "/enclosure/0:0:24:0/Slot 04/device", disk);
    });
}

TEST(SasPlace, LeadsFromTheDiskToItsPhy)
{
    static constexpr struct {
        const char *disk;
        int result;
        const char *host, *expander, *phy;
    } kCases[] = {
        {"sda", 0, "host0", "expander-0:0", "phy-0:0:9"}, // of two phys the lower number
        {"/dev/sdb", 0, "host0", "", "phy-0:3"},
        {"sdc", -1, "", "", ""}, // SATA
        {"sdd", -1, "", "", ""},
        {"", -1, "", "", ""},
        {"../block/sda", -1, "", "", ""},
    };
    PrivateRoot root;
    sas_tree_make(root);
    root.run([] {
        for (const auto &row : kCases) {
            SCOPED_TRACE(row.disk);
            SasPlace place = {};
            EXPECT_EQ(sas_place_get(row.disk, &place), row.result);
            if (row.result != 0)
                continue;
            EXPECT_STREQ(place.host, row.host);
            EXPECT_STREQ(place.expander, row.expander);
            EXPECT_STREQ(place.phy, row.phy);
        }
        EXPECT_EQ(sas_phy_id_get("phy-0:0:9"), 9);
        EXPECT_EQ(sas_phy_id_get("phy-0:0:10"), -1);
        EXPECT_EQ(sas_phy_id_get("phy-0:0:11"), -1);
        EXPECT_EQ(sas_host_model_id_get("host0"), 7);
        EXPECT_EQ(sas_host_model_id_get("host1"), 0); // an adapter without ids
        EXPECT_EQ(sas_host_model_id_get("host2"), -1);
        EXPECT_EQ(sas_expander_model_id_get("expander-0:0"), 3);
        EXPECT_EQ(sas_expander_model_id_get("expander-0:1"), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrNoDevice);
    });
    EXPECT_EQ(sas_phy_map(7, 0), 7);
    EXPECT_EQ(sas_phy_map(7, 8), 8); // behind the range
    EXPECT_EQ(sas_phy_map(3, 35), 30);
    EXPECT_EQ(sas_phy_map(1, 35), 35);
    EXPECT_EQ(sas_model_max_disks_get(1), 12);
    EXPECT_EQ(sas_model_max_disks_get(7), 8);
    EXPECT_EQ(sas_model_max_disks_get(0), 0);
}

TEST(Enclosure, ShowsItsSlotsAndLights)
{
    PrivateRoot root;
    root.run([] { // no enclosure at all
        UniqueList ids(NLIBCSzListAlloc(0));
        EXPECT_EQ(enclosure_enum(ids.address()), 0);
        EXPECT_EQ(ids.get()->nItem, 0);
        EXPECT_EQ(enclosure_disk_led_set_host(0), -1);
        EXPECT_EQ(enclosure_disk_lamp_set("sda", kLampFault, true), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrNoDevice);
        char serial[8];
        EXPECT_EQ(enclosure_serial_get("0:0:24:0", serial, sizeof(serial)), -1);
    });
    sas_tree_make(root);
    root.run([] {
        UniqueList ids(NLIBCSzListAlloc(0));
        EXPECT_EQ(enclosure_enum(ids.address()), 0);
        EXPECT_EQ(ids.get()->nItem, 1);
        Enclosure enclosure;
        EXPECT_EQ(enclosure_get(NLIBCSzListGet(ids.get(), 0), &enclosure), 0);
        EXPECT_STREQ(enclosure.expander, "expander-0:0");
        EXPECT_STREQ(enclosure.model, "NX2400S");
        EXPECT_STREQ(enclosure.revision, "0102");
        EXPECT_EQ(enclosure.model_id, 3);
        EXPECT_EQ(enclosure_get("../enclosure/0:0:24:0", &enclosure), -1);
        EnclosureSlot slot;
        EXPECT_EQ(enclosure_slot_find("/dev/sda", &slot), 0);
        EXPECT_STREQ(slot.enclosure, "0:0:24:0");
        EXPECT_EQ(slot.number, 4);
        for (const char *name : {"sdb", "sd*", ""})
            EXPECT_EQ(enclosure_slot_find(name, &slot), -1) << name;
        EXPECT_EQ(enclosure_disk_lamp_set("sda", kLampLocate, true), 0);
    });
    const auto lamps = [&] {
        std::string lit;
        const std::string ses = std::string(kAdapter) +
                                "/host0/port-0:0/expander-0:0/port-0:0:24/end_device-0:0:24/target0:0:24/0:0:24:0"
                                "/enclosure/0:0:24:0/";
        for (const char *lamp : {"Slot 04/fault", "Slot 04/locate", "Slot 05/fault", "Slot 05/locate"})
            lit += root.read(ses + lamp).substr(0, 1);
        return lit;
    };
    EXPECT_EQ(lamps(), "0100");
    root.run([] { EXPECT_EQ(enclosure_disk_led_set_host(1), 0); });
    EXPECT_EQ(lamps(), "1111");
}

TEST(MappedDisk, LeadsToTheDeviceBelow)
{
    static constexpr struct {
        const char *name, *parent; // NULL: a failure
    } kCases[] = {
        {"sas3", "dm-0"},     {"/dev/mapper/sas3", "dm-0"},
        {"/dev/dm-0", "sdb"}, {"sdb", "sdb"},
        {"sas4", nullptr},    {"", nullptr},
        {"a/b", nullptr},     {"dm-00000000", nullptr},
    };
    PrivateRoot root;
    root.write("/sys/block/dm-1/dm/name", "sas33\n");
    root.write("/sys/block/dm-0/dm/name", "sas3\n");
    root.write("/sys/block/dm-0/slaves/sdc/x", "");
    root.write("/sys/block/dm-0/slaves/sdb/x", "");
    root.write("/sys/block/sdb/size", "8\n");
    root.run([] {
        for (const auto &row : kCases) {
            char parent[8] = "";
            EXPECT_EQ(mapped_disk_parent_get(row.name, parent, sizeof(parent)), row.parent == nullptr ? -1 : 0);
            EXPECT_STREQ(parent, row.parent == nullptr ? "" : row.parent) << row.name;
        }
        char parent[4];
        EXPECT_EQ(mapped_disk_parent_get("sas3", parent, sizeof(parent)), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrBufferTooSmall);
    });
}

TEST(NvmePlace, IsKnownByItsPort)
{
    struct Case {
        const char *unique, *disk, *folder;
        int kind, index, slot;
    };
    static constexpr char kRoot[] = "/sys/devices/pci0000:00/";
    static constexpr Case kCases[] = {
        {"other", "nvme0n1", "0000:00:1d.0/0000:01:00.0", 3, 1, 0},
        {"other", "/dev/nvme0n1p2", "0000:00:1d.4/0000:01:00.0", 3, 2, 0},
        {"other", "nvme0n1", "0000:00:01.1/0000:01:00.0", 0, 0, 0},         // another model's bay
        {"norv_x86_nv4", "nvme0n1", "0000:00:01.2/0000:01:00.0", 2, 2, -1}, // a model with rows has no others
        {"norv_x86_nv4", "nvme0n1", "0000:00:1d.4/0000:01:00.0", 0, 0, 0},
        {"norv_x86_m2b", "nvme0n1", "0000:00:1d.0/0000:01:00.0", 1, 1, -1},
        {"norv_x86_m2b", "nvme0n1", "0000:00:02.2/0000:01:00.0", 4, 2, -1},
        {"other", "nvme0n1", "0000:00:03.0/0000:05:00.0", 3, 1, 2}, // in the extension slot itself
        {"other", "nvme0n1", "0000:00:03.0/0000:05:00.0/0000:06:08.0/0000:08:00.0", 3, 2, 2}, // behind a switch
        {"other", "nvme0n1", "0000:00:04.0/0000:05:00.0", 0, 0, 0},
        {"other", "nvme7n1", "0000:00:1d.0/0000:01:00.0", 0, 0, 0}, // not there
        {"other", "sda", "0000:00:1d.0/0000:01:00.0", 0, 0, 0},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(&row - kCases);
        PrivateRoot root;
        root.write("/etc.defaults/norvinfo.conf", std::string("unique=\"") + row.unique + "\"\n");
        root.write("/etc.defaults/extensionPorts", "[pci]\npci2=\"0000:00:03.0\"\n");
        const std::string controller = std::string(kRoot) + row.folder, disk = controller + "/nvme/nvme0/nvme0n1";
        root.write(disk + "/size", "8\n");
        for (const char *port : {"04", "08", "0c"})
            root.write(std::string(kRoot) + "0000:00:03.0/0000:05:00.0/0000:06:" + port + ".0/class", "0x060400\n");
        root.write(std::string(kRoot) + "0000:00:03.0/0000:05:00.0/0000:06:01.0/class", "0x088000\n"); // no bridge
        root.run([&] {
            link_make("/sys/block/nvme0n1", disk);
            NvmePlace place = {};
            EXPECT_EQ(nvme_place_get(row.disk, &place), row.kind == 0 ? -1 : 0);
            EXPECT_EQ(nvme_slot_kind_get(row.disk), row.kind);
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
        char names[32];
        EXPECT_EQ(expansion_unit_disks_get(names, sizeof(names)), 0);
        EXPECT_STREQ(names, "sdja,sdjb,sdk");
        char few[12];
        EXPECT_EQ(expansion_unit_disks_get(few, sizeof(few)), -1);
        EXPECT_EQ(expansion_unit_list_position(names, "sdk"), 3);
        EXPECT_EQ(expansion_unit_list_position(names, "sdj"), 0);
        ExpansionUnitPlace place = {};
        EXPECT_EQ(expansion_unit_place_get("sdjb", &place), 1);
        EXPECT_STREQ(place.model, "NX4R");
        EXPECT_EQ(place.position, 2);
        EXPECT_EQ(expansion_unit_place_get("sdk", &place), 1);
        EXPECT_STREQ(place.model, "NX-5");
        EXPECT_EQ(place.unit, 2);
        EXPECT_EQ(expansion_unit_place_get("sda", &place), 0);
    });
}

} // namespace

// norvdiskport: every option on made-up device trees.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <scsi/sg.h>
#include <string>
#include <vector>

#include "tests/support/adapter_chip.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf";
constexpr char kVersion[] = "/proc/sys/kernel/norv_hw_version";

struct Row {
    std::string args;
    const char *out; // without the newline; NULL: none, and 255
};

void rows_run(Sandbox &box, const std::vector<Row> &rows)
{
    for (const Row &row : rows) {
        const Result result = box.run(words(row.args, "norvdiskport"));
        EXPECT_EQ(result.out, row.out == nullptr ? "" : std::string(row.out) + "\n") << row.args;
        EXPECT_EQ(result.exit_status, row.out == nullptr ? 255 : 0) << row.args;
    }
}

// What an option tells of many names: "NAME=WORD", or "NAME=" where it fails.
void names_run(Sandbox &box, const std::string &option, const std::string &answers)
{
    for (const std::string &answer : words(answers)) {
        const size_t equal = answer.find('=');
        const std::string word = answer.substr(equal + 1);
        rows_run(box, {{option + " " + answer.substr(0, equal), word.empty() ? nullptr : word.c_str()}});
    }
}

void disks_make(Sandbox &box, const char *names)
{
    for (const std::string &name : words(names))
        box.directory("/sys/block/" + name);
}

// The eSATA ports are sdi and sdj, a unit hangs on sdj.
constexpr char kSata[] = "internalportcfg=0xf\nesataportcfg=300\nusbportcfg=0x30\ncacheportcfg=0xc0\nmaxdisks=4\n";
void sata_make(Sandbox &box, const std::string &more = "")
{
    box.file(kDefaults, kSata + more);
    box.leaves({"/tmp/.dualhead", "/tmp/.not.dualhead"});
    disks_make(box, "sda sdb sdc sde sdg sdi sdja sdjb sdk isda norvboot mmcblk0 sysd1 nvme0n1 md0 usb1 sas1");
    box.file("/tmp/eunitinfo_sdj", "EUnitModel=NX5-2\nEUnitDisks=sdja, /dev/sdjb,,\n");
}

TEST(Norvdiskport, SataDisksByTheirMasks)
{
    Sandbox box;
    sata_make(box);
    rows_run(box, {
                      {"-internal", " sda sdb sdc"},
                      {"-esata", " sdi"},
                      {"-usb", " sde"},
                      {"-eunit", " sdja sdjb"},
                      {"-iscsi", " isda"},
                      {"-norvboot", " norvboot"},
                      {"-cache", " sdg"},
                      {"-sys", " sysd1"},
                      {"-invalid", nullptr}, // not a class that is searched for
                      {"-installable_disk_list", " sda sdb sdc"},
                      {"-missing_system_disk_list", ""},
                      {"-incompatible_disk_list", ""},
                      {"-enum_port -internal", " sda sdb sdc sdd"},
                      {"-enum_port -esata", " sdi sdj"},
                      {"-enum_port -eunit", " sdi sdj"},
                      {"-enum_port -usb", " sde sdf"},
                      {"-enum_port -cache", " sdg sdh"},
                      {"-enum_port -sys", nullptr},
                      {"-deviceinfo /dev/sdb", "Internal HDD2"},
                      {"-deviceinfo sdj", "ESATA2"},
                      {"-deviceinfo sdjb", "EUnit2 HDD2"},
                      {"-deviceinfo sdjc", nullptr},
                      {"-deviceinfo ''", nullptr},
                  });
    // sdj's unit lists its disks, sdja is behind a port of the mask and sdba is not; bits repeat every 32, so that
    // sdaga counts as bit 10; the model of nvc1 cannot be read.
    names_run(box, "-portcheck",
              "sda5=SATA /dev/sdi=ESATA sdj=EUNIT sdja1=EUNIT sdba=USBHUB sdaga=USBHUB sdag=SATA sdf=USB "
              "norvboot1=NORVBOOT isdb=ISCSI sdh=CACHE sdk=USBHUB /dev/mmcblk0p1=SDCARD sysd1p2=SYS sd=UNKNOWN "
              "md0=UNKNOWN nvme0n1=UNKNOWN nvc1=UNKNOWN");
    names_run(box, "-part_name_get", "'3 /dev/sda=sda3' '2 nvme0n1=nvme0n1p2' '0 sda=' '1 norvboot=' '1 /dev/='");
    box.file("/tmp/eunitinfo_sdk", "EUnitModel=NX5-4\nEUnitDisks=sdka\n");
    box.file("/tmp/eunitinfo_sdl", "EUnitModel=NX5\nEUnitDisks=sdla\n"); // which unit it is, is not told
    rows_run(box, {{"-deviceinfo sdk", "EUnit4"}, {"-deviceinfo sdla", nullptr}});
    const Result unknown = box.run({"norvdiskport", "-portcheck", "hda"});
    EXPECT_TRUE(
        unknown.record.in_order({"log err external_disk_port_check.cpp:* expected sdx or /dev/sdx, not hda, not "
                                 "match any port type"}));
}

TEST(Norvdiskport, MasksAreReadOnceUnlessUsbHasNone)
{
    static constexpr struct {
        const char *conf;
        int reads; // of four keys each, for three names
        const char *out;
    } kCases[] = {{"usbportcfg=0\nesataportcfg=1\n", 12, "\n"}, {"usbportcfg=8\nesataportcfg=1\n", 4, " sda\n"}};
    for (const auto &row : kCases) {
        Sandbox box;
        disks_make(box, "sda sdb sdc");
        box.file(kDefaults, row.conf);
        box.call({.call = "open", .args = "/etc.defaults/norvinfo.conf *", .real = true});
        const int others = box.run({"norvdiskport", "-missing_system_disk_list"}).record.count("open *");
        // One of them tells whether the model has SAS.
        EXPECT_EQ(box.run({"norvdiskport", "-esata"}).record.count("open *"), others + row.reads + 1);
    }
    Sandbox box;
    box.file(kDefaults, "internalportcfg=1\n");
    const Result result = box.run({"norvdiskport", "-portcheck", "sda"});
    EXPECT_EQ(result.out, "UNKNOWN\n");
    EXPECT_TRUE(result.record.in_order({"log err disk_port_masks_load.cpp:* Get usbportcfg key from "
                                        "/etc.defaults/norvinfo.conf Error"}));
    rows_run(box, {{"-enum_port -internal", " sda"}, {"-enum_port -usb", ""}}); // no scan, no classes
}

TEST(Norvdiskport, BadCallsShowTheUsage)
{
    Sandbox box;
    box.file(kDefaults, "");
    for (const char *args : {"", "-fly", "internal", "-internal sda", "-portcheck", "-part_name_get 1",
                             "-part_name_get 1 sda sdb", "-enum_port -fly"}) {
        const Result result = box.run(words(args, "norvdiskport"));
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_TRUE(result.out.starts_with("Usage:\n    norvdiskport -internal\n")) << result.out;
    }
    box.file(kDefaults, "usbportcfg=1\nesataportcfg=0xf0\n");
    rows_run(box, {{"-enum_port -eunit", " sde sdf sdg sdh"}});
    const Result esata = box.run({"norvdiskport", "-enum_port", "-esata"});
    EXPECT_EQ(esata.out, "This model don't support eSATA device.\n");
    EXPECT_EQ(esata.exit_status, 255);
}

// Install order is by number, not by name.
TEST(Norvdiskport, InstallableDisksComeByUnitAndNumber)
{
    static constexpr struct {
        const char *conf, *disks, *out;
        int ties;
    } kCases[] = {
        {"internalportcfg=0xfff\nusbportcfg=0x1000\n", "sda sdb sdc sdd sde sdf sdg sdh sdi sdj sdk sdl sdm",
         " sda sdb sdc sdd sde sdf sdg sdh sdi sdj sdk sdl", 0},
        {"support_install_only_dev=yes\nusbportcfg=1\n", "sysd10 sysd2 sysd1 sda", " sysd1 sysd2 sysd10", 0},
        // The two names have one number. Both are held against the best found before, in the first round alone.
        {"support_install_only_dev=yes\nusbportcfg=1\n", "sysd1 sysd01 sysd2", " sysd01 sysd1 sysd2", 1},
        {"support_install_only_dev=yes\nusbportcfg=1\n", "sysd1 sysdx", " sysd1 sysdx", 1},
        {"support_dual_head=yes\nesataportcfg=0x3\nusbportcfg=0x1000\n", "sdaa sdab sdba sdbb sdc",
         " sdaa sdab sdba sdbb", 0},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.disks);
        Sandbox box;
        box.leaves({"/tmp/.dualhead", "/tmp/.not.dualhead"});
        box.file(kDefaults, row.conf);
        disks_make(box, row.disks);
        const Result result = box.run({"norvdiskport", "-installable_disk_list"});
        EXPECT_EQ(result.out, std::string(row.out) + "\n");
        EXPECT_EQ(result.record.count("log err *Failed to compare system disks."), row.ties);
    }
}

// The first port of a kind that belongs to one model.
const ProductNvmePort &nvme_port(int kind)
{
    const ProductNvmePort *port = kProductNvmePorts;
    while (port->kind != kind || *port->unique == '\0')
        port++;
    return *port;
}

TEST(Norvdiskport, NvmeDisksByTheirSlot)
{
    static constexpr struct {
        int kind;
        const char *word, *list;
    } kCases[] = {{1, "INVALID", nullptr}, {2, "SATA", "-internal"}, {3, "CACHE", "-cache"}, {4, "SATA", "-internal"}};
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.kind);
        Sandbox box;
        const std::string keys = std::string("usbportcfg=1\nunique=") + nvme_port(row.kind).unique + "\n";
        box.file(kDefaults, keys + "supportnvme=yes\n");
        const std::string disk =
            std::string("/sys/devices/pci0000:00/") + nvme_port(row.kind).address + "/0000:05:00.0/nvme/nvme0/nvme0n1";
        box.directory(disk);
        box.directory("/sys/block");
        box.symlink("/sys/block/nvme0n1", disk);
        rows_run(box, {
                          {"-portcheck /dev/nvme0n1p1", row.word},
                          {"-internal", row.list != nullptr && !strcmp(row.list, "-internal") ? " nvme0n1" : ""},
                          {"-cache", row.list != nullptr && !strcmp(row.list, "-cache") ? " nvme0n1" : ""},
                          {"-portcheck nvme1n1", "UNKNOWN"},
                      });
        box.file(kDefaults, keys);
        rows_run(box, {{"-portcheck nvme0n1", "UNKNOWN"}, {"-internal", ""}, {"-cache", ""}});
    }
}

TEST(Norvdiskport, FailsWhereTheDisksCannotBeListed)
{
    static constexpr struct {
        const char *option;
        int exit_status;
    } kCases[] = {{"-internal", 255}, {"-installable_disk_list", 255}, {"-invalid_disk_list", 1}};
    Sandbox box;
    box.leaves({"/tmp/.not.dualhead"});
    box.file(kDefaults, "usbportcfg=1\n");
    rows_run(box, {{"-internal", ""}}); // no folder, no disks
    box.symlink("/sys/block", "/sys/block");
    for (const auto &row : kCases) {
        const Result result = box.run({"norvdiskport", row.option});
        EXPECT_EQ(result.exit_status, row.exit_status) << row.option;
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(
            result.record.in_order({"log err external_disk_port_enum.cpp:* read error :/sys/block/sd*",
                                    "log err external_disk_port_enum.cpp:* NORVDiskPathGlobAndPortCheck fail!"}));
    }
}

// The class of an M.2 disk on SATA: its card, and whether the model is one of those the product names.
TEST(Norvdiskport, M2DisksByTheirCard)
{
    const std::string first = kProductM2Card0Models[0], second = kProductM2Card12Models[1];
    const struct {
        int row; // of the table of cards; -1: a chip that is in none
        std::string model;
        const char *word, *word_all;
    } cases[] = {
        {0, first + "x-j5", "CACHE", "CACHE"}, {0, "OTHER", "INVALID", "CACHE"}, {0, second, "INVALID", "CACHE"},
        {1, first, "CACHE", "CACHE"},          {1, second, "INVALID", "CACHE"},  {2, second + "-j", "INVALID", "CACHE"},
        {2, "OTHER", "CACHE", "CACHE"},        {-1, "OTHER", "CACHE", "CACHE"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.model + " " + std::to_string(row.row));
        Sandbox box;
        const ProductAdapterCard &card = kProductAdapterCards[row.row < 0 ? 0 : row.row];
        ProductAdapterCard chip = card;
        if (row.row < 0)
            chip.vendor = 1;
        for (const auto &[path, content] : adapter_chip_files(chip, 0))
            box.file(path, content);
        const std::string disk = adapter_device(card.disk_levels, "nvc1");
        box.directory(disk);
        box.directory("/sys/block");
        box.symlink("/sys/block/nvc1", disk);
        box.file(kVersion, row.model + "\n");
        box.file(kDefaults, "usbportcfg=1\n");
        rows_run(box, {{"-portcheck /dev/nvc1p1", row.word}, {"-cache", *row.word == 'C' ? " nvc1" : ""}});
        box.file(kDefaults, "usbportcfg=1\nsupport_m2_all_devices=yes\n");
        rows_run(box, {{"-portcheck nvc1", row.word_all}, {"-cache", " nvc1"}});
        box.file(kDefaults, "usbportcfg=1\nsupport_m2_all_devices=yes\nblockm2sata=yes\n");
        rows_run(box, {{"-portcheck nvc1", row.word_all}, {"-cache", ""}});
    }
}

// A SAS disk below a mapped one, on a phy of an expander whose enclosure is of the product's table.
void sas_disk_make(Sandbox &box, const std::string &name, int expander, int phy)
{
    const std::string number = "0:" + std::to_string(expander), place = number + ":" + std::to_string(phy);
    const std::string port = "/sys/devices/host0/port-" + number + "/expander-" + number + "/port-" + place;
    const std::string disk = port + "/end_device-" + place + "/target/" + name;
    box.directory(disk);
    box.directory(port + "/phy-" + place);
    box.file("/sys/class/sas_phy/phy-" + place + "/phy_identifier", std::to_string(phy) + "\n");
    box.directory("/sys/block/" + name + "/slaves/dm-" + name);
    box.directory("/sys/block/dm-" + name + "/slaves/x" + name);
    box.directory("/sys/block/x" + name);
    box.symlink("/sys/block/x" + name + "/device", disk);
}

// The same on a phy of a host adapter that is, or is not, of the product's table.
void sas_host_disk_make(Sandbox &box, const std::string &name, int host, int phy, bool is_known)
{
    const std::string number = std::to_string(host), place = number + ":" + std::to_string(phy);
    const std::string adapter = "/sys/devices/adapter" + number, port = adapter + "/host" + number + "/port-" + place;
    const auto hex = [](int id) {
        char text[8];
        snprintf(text, sizeof(text), "0x%04x\n", static_cast<unsigned>(id));
        return std::string(text);
    };
    const ProductSasHost &row = kProductSasHosts[0];
    box.file(adapter + "/vendor", hex(row.vendor));
    box.file(adapter + "/device", hex(is_known ? row.device : row.device + 1));
    box.file(adapter + "/subsystem_vendor", hex(row.subsystem_vendor));
    box.file(adapter + "/subsystem_device", hex(row.subsystem_device));
    box.directory("/sys/class/scsi_host/host" + number);
    box.symlink("/sys/class/scsi_host/host" + number + "/device", adapter + "/host" + number);
    box.directory(port + "/end_device-" + place + "/target/" + name);
    box.directory(port + "/phy-" + place);
    box.file("/sys/class/sas_phy/phy-" + place + "/phy_identifier", std::to_string(phy) + "\n");
    box.directory("/sys/block/" + name);
    box.symlink("/sys/block/" + name + "/device", port + "/end_device-" + place + "/target/" + name);
}

void sas_enclosure_make(Sandbox &box, int expander, const ProductEnclosure &row)
{
    const std::string number = "0:" + std::to_string(expander);
    const std::string folder = "/sys/devices/host0/port-" + number + "/expander-" + number + "/enclosure/" + number;
    box.file(folder + "/device/vendor", std::string(row.vendor) + "\n");
    box.file(folder + "/device/model", std::string(row.model) + "\n");
    box.directory("/sys/class/enclosure");
    box.symlink("/sys/class/enclosure/" + number, folder);
}

const ProductEnclosure *enclosure_of(unsigned models)
{
    for (const ProductEnclosure &row : kProductEnclosures)
        if ((models >> row.model_id & 1) != 0)
            return &row;
    return nullptr;
}

TEST(Norvdiskport, SasDisksByTheirPhy)
{
    Sandbox box;
    box.file(kDefaults, "supportsas=yes\nusbportnum=2\nmaxdisks=12\n");
    box.leaves({"/tmp/.not.dualhead"});
    const ProductEnclosure *appliance = enclosure_of(0x68fff1b2), *unit = enclosure_of(0x17000e4c);
    ASSERT_TRUE(appliance != nullptr && unit != nullptr);
    sas_enclosure_make(box, 1, *appliance);
    sas_enclosure_make(box, 2, *unit);
    sas_disk_make(box, "sas1", 1, 17); // bay 11
    sas_disk_make(box, "sas2", 1, 8);  // bay 2
    sas_disk_make(box, "sas3", 1, 69);
    sas_disk_make(box, "sas4", 2, 10);
    sas_disk_make(box, "sas5", 3, 10);           // the enclosure never comes
    sas_host_disk_make(box, "sas6", 1, 2, true); // bay 3
    sas_host_disk_make(box, "sas7", 2, 2, false);
    disks_make(box, "usb1 iscsi1 norvboot sda sysd1");
    box.compress_sleeps();
    rows_run(box, {
                      {"-installable_disk_list", " sas2 sas6 sas1"},
                      {"-internal", " sas1 sas2 sas6"},
                      {"-eunit", " sas4"},
                      {"-cache", " sas3"},
                      {"-usb", " usb1"},
                      {"-iscsi", " iscsi1"},
                      {"-norvboot", " norvboot"},
                      {"-esata", ""},
                      {"-enum_port -internal", nullptr},
                      {"-deviceinfo sas1", nullptr},
                      {"-part_name_get 2 /dev/sas3", "sas3p2"},
                  });
    names_run(box, "-portcheck",
              "/dev/sas1p3=SAS sas3=CACHE sas4=EUNIT sas9=UNKNOWN usb1p1=USB usbx=USB iscsi1=ISCSI norvboot=NORVBOOT "
              "sda=UNKNOWN sysd1=SYS"); // of usbx the letters that are found so far
    for (const char *disk : {"sas5", "sas7"}) {
        const Result waited = box.run({"norvdiskport", "-portcheck", disk});
        EXPECT_EQ(waited.out, "UNKNOWN\n");
        EXPECT_EQ(waited.record.count("log err disk_sas_path_parse.cpp:* Try to wait for enclosure ready."), 6);
        EXPECT_EQ(waited.record.count("sleep 2"), 6);
    }
}

TEST(Norvdiskport, AtaLinksAndTheirDisks)
{
    Sandbox box;
    sata_make(box);
    const std::string unit = "EUnitDisks=sdia,sdib\nEUnitModel=";
    box.file("/sys/class/scsi_host/host8/norv_diskname_trans", "sdj\n");
    box.file("/sys/class/scsi_host/host2/norv_diskname_trans", "sda\n");
    box.file("/sys/class/scsi_host/host4/norv_diskname_trans", "sdi");
    box.file("/tmp/eunitinfo_sdi", unit + kProductReversedExpansionUnit + "-1\n");
    // Only units have devices, and the one at sdi counts backwards.
    names_run(box, "-atatodevice",
              "ata3=sda 3.01=sda ata9.01=sdjb 9.14=sdjo ata9=sdj ata9.15= ata9.x= ata9.-1= ata5.00=sdid ata5.03=sdia "
              "ata5.04= ata7= ata= ata0= ata" +
                  std::string(4000, '9') + "=");
}

TEST(Norvdiskport, ThawedPortsAreListedOnceTheyStay)
{
    Sandbox box;
    sata_make(box, "skip_ata_dummy_port=0x8\n");
    box.compress_sleeps();
    const auto host = [&box](int number, const std::string &state, const std::string &disk) {
        const std::string folder = "/sys/class/scsi_host/host" + std::to_string(number);
        box.file(folder + "/norv_port_thaw", state);
        box.file(folder + "/norv_diskname_trans", disk);
    };
    rows_run(box, {{"-portthawlist", ""}}); // no such files
    host(0, "1\n", "sda\n");
    const Result none = box.run({"norvdiskport", "-portthawlist"});
    EXPECT_EQ(none.out, "\n");
    EXPECT_EQ(none.record.count("sleep *"), 0);
    host(1, "0\n", "sdb\n");
    host(2, "0\n", "sdc\n");
    host(3, "0\n", "sdd\n"); // not a port
    host(4, "0\n", "SAS\n");
    host(5, "0\n", "sd");
    box.file("/sys/class/scsi_host/host6/norv_port_thaw", "0\n");
    const Result steady = box.run({"norvdiskport", "-portthawlist"});
    EXPECT_EQ(steady.out, "2 3\n");
    EXPECT_EQ(steady.record.count("sleep 1"), 19);

    // Another list in the eleventh pass begins the count anew.
    box.call({.call = "open", .args = "/sys/class/scsi_host/host2/norv_port_thaw *", .error = EIO, .skip = 10});
    const Result changed = box.run({"norvdiskport", "-portthawlist"});
    EXPECT_EQ(changed.out, "2\n");
    EXPECT_EQ(changed.record.count("sleep 1"), 29);
}

TEST(Norvdiskport, BoardTellsWhichInterfacesDoNotSuit)
{
    Sandbox box;
    sata_make(box, "support_disk_intf_check=yes\n");
    rows_run(box, {{"-incompatible_disk_list", ""}});
    box.board_scenario("incompatible SATA 1 3 5\nincompatible SAS 2\n"); // there is no bay 5
    rows_run(box, {{"-incompatible_disk_list", "SATA: 1 3\nSAS: 2"}});
    box.board_scenario("fail disk_interfaces EIO\n");
    rows_run(box, {{"-incompatible_disk_list", nullptr}});
    box.board_remove();
    rows_run(box, {{"-incompatible_disk_list", nullptr}});
}

// Answers an inquiry with the model, then one with the serial number, each once.
void disk_answers(Sandbox &box, const std::string &device, const std::string &model)
{
    constexpr size_t kDataPointer = offsetof(sg_io_hdr, dxferp);
    std::string inquiry(96, '\0');
    inquiry[4] = static_cast<char>(inquiry.size() - 5);
    inquiry.replace(8, 24, std::string(24, ' ')).replace(8, 4, "NORV").replace(16, model.size(), model);
    box.device(device, 4ULL << 30);
    for (const std::string &bytes : {inquiry, std::string("\0\x80\0\x08SERIAL 1", 12)})
        box.request(
            {.device = device, .request = SG_IO, .bytes = bytes, .at = kDataPointer, .is_pointer = true, .times = 1});
}

TEST(Norvdiskport, RulesTellWhichDisksAreInvalid)
{
    Sandbox box;
    sata_make(box);
    rows_run(box, {{"-invalid_disk_list", "1, 2, 3"}}); // no disk answers
    box.file("/var/lib/disk-compatibility/host_rule.db",
             R"({"format": 1, "default": {"selectable": true},
                 "rules": [{"model": "BAD*", "action": {"selectable": false}}]})");
    disk_answers(box, "/dev/sda", "BADLY MADE");
    disk_answers(box, "/dev/sdb", "GOOD");
    rows_run(box, {{"-invalid_disk_list", "1, 3"}});
    box.file(kDefaults, std::string(kSata) + "support_install_only_dev=yes\n");
    rows_run(box, {{"-invalid_disk_list", ""}}); // dedicated disks are not looked at
}

} // namespace

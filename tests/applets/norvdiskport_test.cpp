// norvdiskport: every option on made-up device trees.
#include <cerrno>
#include <cstddef>
#include <gtest/gtest.h>
#include <scsi/sg.h>
#include <string>

#include "tests/support/adapter_chip.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf";
constexpr char kVersion[] = "/proc/sys/kernel/norv_hw_version";

// What an option answers: 'ARGUMENTS=OUTPUT' each. An output of "!" stands for none, and 255.
void expect_answers(Sandbox &box, const std::string &option, const std::string &answers)
{
    for (const std::string &answer : words(answers)) {
        const size_t equal = answer.find('=');
        const std::string args = option + answer.substr(0, equal), out = answer.substr(equal + 1);
        const Result result = box.run(words(args, "norvdiskport"));
        EXPECT_EQ(result.out, out == "!" ? "" : out + "\n") << args;
        EXPECT_EQ(result.exit_status, out == "!" ? 255 : 0) << args;
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
    // No class that is searched for is -invalid.
    expect_answers(box, "-",
                   "'internal= sda sdb sdc' 'esata= sdi' 'usb= sde' 'eunit= sdja sdjb' 'iscsi= isda' "
                   "'norvboot= norvboot' 'cache= sdg' 'sys= sysd1' invalid=! missing_system_disk_list= "
                   "'installable_disk_list= sda sdb sdc' incompatible_disk_list=");
    expect_answers(box, "-enum_port -",
                   "'internal= sda sdb sdc sdd' 'esata= sdi sdj' 'eunit= sdi sdj' 'usb= sde sdf' "
                   "'cache= sdg sdh' sys=!");
    box.file("/tmp/eunitinfo_sdk", "EUnitModel=NX5-4\nEUnitDisks=sdka\n");
    box.file("/tmp/eunitinfo_sdl", "EUnitModel=NX5\nEUnitDisks=sdla\n"); // which unit it is, is not told
    expect_answers(box, "-deviceinfo ",
                   "'/dev/sdb=Internal HDD2' sdj=ESATA2 'sdjb=EUnit2 HDD2' sdjc=! sdk=EUnit4 "
                   "sdla=!");
    box.remove("/tmp/eunitinfo_sdk");
    // sdj's unit lists its disks, sdja is behind a port of the mask and sdba is not; bits repeat every 32, so that
    // sdaga counts as bit 10; the model of nvc1 cannot be read.
    expect_answers(box, "-portcheck ",
                   "sda5=SATA /dev/sdi=ESATA sdj=EUNIT sdja1=EUNIT sdba=USBHUB sdaga=USBHUB sdag=SATA sdf=USB "
                   "norvboot1=NORVBOOT isdb=ISCSI sdh=CACHE sdk=USBHUB /dev/mmcblk0p1=SDCARD sysd1p2=SYS sd=UNKNOWN "
                   "md0=UNKNOWN nvme0n1=UNKNOWN nvc1=UNKNOWN");
    expect_answers(box, "-part_name_get ",
                   "'3 /dev/sda=sda3' '2 nvme0n1=nvme0n1p2' '2 sata1=sata12' '0 sda=!' '1 norvboot=!'");
    const Result unknown = box.run({"norvdiskport", "-portcheck", "hda"});
    EXPECT_TRUE(
        unknown.record.in_order({"log err external_disk_port_check.cpp:* expected sdx or /dev/sdx, not hda, not "
                                 "match any port type"}));
}

TEST(Norvdiskport, BadCallsAndBadModels)
{
    Sandbox box;
    box.file(kDefaults, "");
    for (const char *args : {"", "-fly", "-internal sda", "-portcheck", "-enum_port -fly"}) {
        const Result result = box.run(words(args, "norvdiskport"));
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_TRUE(result.out.starts_with("Usage:\n    norvdiskport -internal\n")) << result.out;
    }
    box.file(kDefaults, "usbportcfg=1\nesataportcfg=0xf0\n");
    expect_answers(box, "-enum_port -", "'eunit= sde sdf sdg sdh'");
    const Result esata = box.run({"norvdiskport", "-enum_port", "-esata"});
    EXPECT_EQ(esata.out, "This model don't support eSATA device.\n");
    EXPECT_EQ(esata.exit_status, 255);

    box.file(kDefaults, "internalportcfg=1\n");
    const Result unknown = box.run({"norvdiskport", "-portcheck", "sda"});
    EXPECT_EQ(unknown.out, "UNKNOWN\n");
    EXPECT_TRUE(unknown.record.in_order({"log err disk_port_masks_load.cpp:* Get usbportcfg key from "
                                         "/etc.defaults/norvinfo.conf Error"}));
    expect_answers(box, "-enum_port -", "'internal= sda' usb="); // no scan, no classes
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
        const char *word, *lists;
    } kCases[] = {{1, "INVALID", "internal= cache="},
                  {2, "SATA", "'internal= nvme0n1' cache="},
                  {3, "CACHE", "internal= 'cache= nvme0n1'"},
                  {4, "SATA", "'internal= nvme0n1' cache="}};
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.kind);
        Sandbox box;
        box.file(kDefaults, std::string("supportnvme=yes\nusbportcfg=1\nunique=") + nvme_port(row.kind).unique + "\n");
        const std::string disk =
            std::string("/sys/devices/pci0000:00/") + nvme_port(row.kind).address + "/0000:05:00.0/nvme/nvme0/nvme0n1";
        box.directory(disk);
        box.directory("/sys/block");
        box.symlink("/sys/block/nvme0n1", disk);
        expect_answers(box, "-portcheck ", std::string("/dev/nvme0n1p1=") + row.word + " nvme1n1=UNKNOWN");
        expect_answers(box, "-", row.lists);
    }
}

TEST(Norvdiskport, FailsWhereTheDisksCannotBeListed)
{
    Sandbox box;
    box.leaves({"/tmp/.not.dualhead"});
    box.file(kDefaults, "usbportcfg=1\n");
    expect_answers(box, "-", "internal="); // no folder, no disks
    box.symlink("/sys/block", "/sys/block");
    expect_answers(box, "-", "internal=! installable_disk_list=!");
    const Result result = box.run({"norvdiskport", "-invalid_disk_list"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.record.in_order({"log err external_disk_port_enum.cpp:* read error :/sys/block/sd*",
                                        "log err external_disk_port_enum.cpp:* NORVDiskPathGlobAndPortCheck fail!"}));
}

// The class of an M.2 disk on SATA: its card, and whether the model is one of those the product names.
TEST(Norvdiskport, M2DisksByTheirCard)
{
    const std::string first = kProductM2Card0Models[0], second = kProductM2Card12Models[1];
    const struct {
        int row; // of the table of cards; -1: a chip that is in none
        std::string model;
        const char *word; // unless the model may have all of them
    } cases[] = {
        {0, first + "x-j5", "CACHE"}, {0, "OTHER", "INVALID"}, {1, first, "CACHE"},
        {1, second, "INVALID"},       {2, "OTHER", "CACHE"},   {-1, "OTHER", "CACHE"},
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
        expect_answers(box, "-",
                       std::string("'portcheck /dev/nvc1p1=") + row.word +
                           "' 'cache=" + (*row.word == 'C' ? " nvc1'" : "'"));
        box.file(kDefaults, "usbportcfg=1\nsupport_m2_all_devices=yes\n");
        expect_answers(box, "-", "'portcheck nvc1=CACHE' 'cache= nvc1'");
        box.file(kDefaults, "usbportcfg=1\nsupport_m2_all_devices=yes\nblockm2sata=yes\n");
        expect_answers(box, "-", "'portcheck nvc1=CACHE' cache=");
    }
}

// A SAS disk on a phy of what stands at a path: of an expander, and then below a mapped disk, or of a host adapter.
void sas_disk_make(Sandbox &box, const std::string &name, const std::string &above, const std::string &number, int phy)
{
    const std::string place = number + ":" + std::to_string(phy), port = above + "/port-" + place;
    const std::string disk = port + "/end_device-" + place + "/target/" + name;
    const bool is_mapped = number.find(':') != number.npos;
    box.directory(disk);
    box.directory(port + "/phy-" + place);
    box.file("/sys/class/sas_phy/phy-" + place + "/phy_identifier", std::to_string(phy) + "\n");
    box.directory("/sys/block/" + name);
    if (is_mapped) {
        box.directory("/sys/block/" + name + "/slaves/dm-" + name);
        box.directory("/sys/block/dm-" + name + "/slaves/x" + name);
        box.directory("/sys/block/x" + name);
    }
    box.symlink("/sys/block/" + (is_mapped ? "x" + name : name) + "/device", disk);
}

std::string expander_path(int expander)
{
    const std::string number = "0:" + std::to_string(expander);
    return "/sys/devices/host0/port-" + number + "/expander-" + number;
}

// A host adapter that is, or is not, of the product's table. Returns its path.
std::string sas_host_make(Sandbox &box, const std::string &number, bool is_known)
{
    const std::string adapter = "/sys/devices/adapter" + number, host = adapter + "/host" + number;
    const ProductSasHost &row = kProductSasHosts[0];
    for (const auto &[path, content] :
         pci_number_files(adapter, static_cast<unsigned>(row.vendor), static_cast<unsigned>(row.device + !is_known),
                          static_cast<unsigned>(row.subsystem_vendor), static_cast<unsigned>(row.subsystem_device)))
        box.file(path, content);
    box.directory("/sys/class/scsi_host/host" + number);
    box.symlink("/sys/class/scsi_host/host" + number + "/device", host);
    return host;
}

void sas_enclosure_make(Sandbox &box, int expander, const ProductEnclosure &row)
{
    const std::string number = "0:" + std::to_string(expander),
                      folder = expander_path(expander) + "/enclosure/" + number;
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
    const struct {
        const char *name;
        int expander, phy;
    } disks[] = {{"sas1", 1, 17}, {"sas2", 1, 8}, {"sas3", 1, 69}, {"sas4", 2, 10}, {"sas5", 3, 10}}; // 3 has none
    for (const auto &[name, expander, phy] : disks)
        sas_disk_make(box, name, expander_path(expander), "0:" + std::to_string(expander), phy);
    sas_disk_make(box, "sas6", sas_host_make(box, "1", true), "1", 2); // bay 3
    sas_disk_make(box, "sas7", sas_host_make(box, "2", false), "2", 2);
    disks_make(box, "usb1 iscsi1 norvboot sda sysd1");
    box.compress_sleeps();
    expect_answers(box, "-",
                   "'installable_disk_list= sas2 sas6 sas1' 'internal= sas1 sas2 sas6' 'eunit= sas4' "
                   "'cache= sas3' 'usb= usb1' 'iscsi= iscsi1' 'norvboot= norvboot' esata= "
                   "'enum_port -internal=!' 'deviceinfo sas1=!' 'part_name_get 2 /dev/sas3=sas3p2'");
    expect_answers(box, "-portcheck ",
                   "/dev/sas1p3=SAS sas3=CACHE sas4=EUNIT sas9=UNKNOWN usb1p1=USB usbx=USB iscsi1=ISCSI "
                   "norvboot=NORVBOOT sda=UNKNOWN sysd1=SYS"); // of usbx the letters that are found so far
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
    expect_answers(box, "-atatodevice ata",
                   "3=sda 3.01=sda 9.01=sdjb 9.14=sdjo 9=sdj 9.15=! 9.x=! 9.-1=! 5.00=sdid 5.03=sdia 5.04=! "
                   "7=! 0=! =! " +
                       std::string(4000, '9') + "=!");
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
    expect_answers(box, "-portthawlist", "="); // no such files
    EXPECT_EQ(box.record().count("sleep *"), 0);
    host(0, "1\n", "sda\n");
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
    expect_answers(box, "-incompatible_disk_list", "=");
    box.board_scenario("incompatible SATA 1 3 5\nincompatible SAS 2\n"); // there is no bay 5
    expect_answers(box, "-incompatible_disk_list", "'=SATA: 1 3\nSAS: 2'");
    box.board_scenario("fail disk_interfaces EIO\n");
    expect_answers(box, "-incompatible_disk_list", "=!");
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
    expect_answers(box, "-invalid_disk_list", "'=1, 2, 3'"); // no disk answers
    box.file("/var/lib/disk-compatibility/host_rule.db",
             R"({"format": 1, "default": {"selectable": true},
                 "rules": [{"model": "BAD*", "action": {"selectable": false}}]})");
    disk_answers(box, "/dev/sda", "BADLY MADE");
    disk_answers(box, "/dev/sdb", "GOOD");
    expect_answers(box, "-invalid_disk_list", "'=1, 3'");
    box.file(kDefaults, std::string(kSata) + "support_install_only_dev=yes\n");
    expect_answers(box, "-invalid_disk_list", "="); // dedicated disks are not looked at
}

} // namespace

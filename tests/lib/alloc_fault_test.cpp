// Every allocation of the library's operations fails in turn.
#include "tests/support/alloc_fault.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "external/disk_identity.h"
#include "external/enclosure.h"
#include "external/expansion_unit.h"
#include "external/extension_slot.h"
#include "external/mapped_disk.h"
#include "external/nic.h"
#include "external/nvme_slot.h"
#include "external/power_schedule.h"
#include "external/sas.h"
#include "fan/fan_path.h"
#include "findhost/keys.h"
#include "install/cgi.h"
#include "install/cgi_param.h"
#include "install/system_status.h"
#include "install/web_progress.h"
#include "lib/file.h"
#include "lib/file_text.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/string.h"
#include "net/net.h"
#include "net/net_seq.h"
#include "net/norvjnet.h"
#include "storage/lvm.h"
#include "storage/partition.h"
#include "storage/partition_layout.h"
#include "storage/raid.h"
#include "storage/raid_parts.h"
#include "storage/root_block.h"
#include "swap/swap.h"
#include "swap/swap_json.h"
#include "tests/external/disk_answers.h"
#include "tests/storage/root_block_bytes.h"
#include "tests/support/device_answers.h"
#include "tests/support/in_child.h"
#include "tests/support/points.h"
#include "tests/support/private_root.h"
#include "tests/support/true_program.h"

namespace
{

// Filled so that the operations below must grow what they change.
struct Fixture {
    UniqueList list{NLIBCSzListAlloc(0)}, other{NLIBCSzListAlloc(0)};
    UniqueHash hash{NLIBCSzHashAlloc(0)};
    UniqueText text;
    int text_bytes = 0;

    explicit Fixture(int mode)
    {
        NLIBCSzListSort(list.get(), mode);
        NLIBCSzListSort(other.get(), mode);
        for (int i = 0; i < 24; i++) {
            const std::string item = "item " + std::to_string(i);
            NLIBCSzListPush(list.address(), item.c_str());
            NLIBCSzListPush(other.address(), (item + " of the other list").c_str());
            NLIBCSzHashSetValue(hash.address(), item.c_str(), "v");
        }
        NLIBCStrCat(text.address(), &text_bytes, "text");
    }

    // All the bytes of all the blocks, and where they stand.
    [[nodiscard]] std::string state()
    {
        const NLIBSZHASH *table = hash.get();
        const auto hash_bytes = sizeof *table + static_cast<size_t>(table->nSlot) * sizeof table->slots[0] +
                                static_cast<size_t>(table->cbPool);
        const PNLIBSZLIST handles[] = {list.get(), other.get()};
        std::string bytes(reinterpret_cast<const char *>(handles), sizeof handles);
        for (const NLIBSZLIST *block : handles)
            bytes.append(reinterpret_cast<const char *>(block), static_cast<size_t>(block->cbAlloc));
        bytes.append(reinterpret_cast<const char *>(table), hash_bytes);
        bytes.append(text.get(), static_cast<size_t>(text_bytes));
        return bytes + std::to_string(reinterpret_cast<uintptr_t>(table) ^ reinterpret_cast<uintptr_t>(text.get()));
    }
};

TEST(AllocFault, EveryOperationFailsWhole)
{
    static const std::string big(2000, 'x');
    struct {
        const char *name;
        bool (*succeeds)(Fixture &);
    } static constexpr kOperations[] = {
        {"list alloc", [](Fixture &) { return static_cast<bool>(UniqueList(NLIBCSzListAlloc(0))); }},
        {"list push", [](Fixture &f) { return NLIBCSzListPush(f.list.address(), big.c_str()) != -1; }},
        {"list unshift", [](Fixture &f) { return NLIBCSzListUnshift(f.list.address(), big.c_str()) != -1; }},
        {"list insert", [](Fixture &f) { return NLIBCSzListInsert(f.list.address(), 300, big.c_str()) != -1; }},
        {"list or", [](Fixture &f) { return NLIBCSzListOr(f.list.address(), f.other.get(), 0) != nullptr; }},
        {"list or, new",
         [](Fixture &f) {
             return static_cast<bool>(UniqueList(NLIBCSzListOr(f.list.address(), f.other.get(), kListOrNew)));
         }},
        {"list sort",
         [](Fixture &f) {
             NLIBCSzListSort(f.list.get(), kListSorted);
             return true;
         }},
        {"hash alloc", [](Fixture &) { return static_cast<bool>(UniqueHash(NLIBCSzHashAlloc(0))); }},
        {"hash set", [](Fixture &f) { return NLIBCSzHashSetValue(f.hash.address(), "new", "v") != -1; }},
        {"hash replace", [](Fixture &f) { return NLIBCSzHashSetValue(f.hash.address(), "item 1", big.c_str()) != -1; }},
        {"hash enumerate", [](Fixture &f) { return NLIBCSzHashEnumKey(f.hash.get(), f.list.address()) != -1; }},
        {"tok", [](Fixture &f) { return NLIBCStrTok(big.c_str(), ",", f.list.address()) != -1; }},
        {"sep", [](Fixture &f) { return NLIBCStrSep((big + ",b").c_str(), ",", f.list.address()) != -1; }},
        {"sep pair", [](Fixture &f) { return NLIBCStrSepPair(("a=" + big).c_str(), f.list.address()) != -1; }},
        {"cat", [](Fixture &f) { return NLIBCStrCat(f.text.address(), &f.text_bytes, big.c_str()) != -1; }},
        {"cat, new",
         [](Fixture &) {
             UniqueText text;
             int bytes = 0;
             return NLIBCStrCat(text.address(), &bytes, "a") != -1;
         }},
    };
    for (const auto &operation : kOperations) {
        for (const int mode : {kListUnsorted, kListSorted}) {
            int nth = 1;
            for (bool struck = true; struck; nth++) {
                SCOPED_TRACE(testing::Message() << operation.name << ", mode " << mode << ", allocation " << nth);
                Fixture fixture(mode);
                const std::string before = fixture.state();
                AllocFault fault(nth);
                const bool succeeds = operation.succeeds(fixture);
                const int held = fault.held();
                struck = fault.struck();
                ASSERT_EQ(succeeds, !struck);
                if (struck) {
                    EXPECT_EQ(held, 0);
                    EXPECT_EQ(NLIBCErrGet(), kErrOutOfMemory);
                    EXPECT_TRUE(fixture.state() == before);
                }
            }
            EXPECT_EQ(nth > 2, strcmp(operation.name, "list sort") != 0) << operation.name; // it needs no memory
        }
    }
}

// An operation on the files of a small machine. None of them parses JSON: json-c does not survive that the copy of a
// key cannot be had.
struct Operation {
    const char *name;
    bool (*succeeds)();
    int code = kErrOutOfMemory; // of its failure
};
constexpr int kAnyCode = -1; // the failure of a part is told as the whole's, or as nothing found

bool list_filled(int (*fill)(PNLIBSZLIST *list))
{
    UniqueList list(NLIBCSzListAlloc(0));
    return list && fill(list.address()) >= 0;
}

bool text_told(int (*tell)(char *text, size_t size))
{
    char text[64] = "";
    return tell(text, sizeof(text)) == 0 && text[0] != '\0';
}

template <typename Record> bool record_told(int (*tell)(const char *name, Record *record), const char *name)
{
    Record record = {};
    return tell(name, &record) >= 0;
}

constexpr off_t kDiskBytes = 800 << 10;
constexpr char kIni[] = "/etc/a.ini";
const Operation kOperations[] = {
    {"key, long file",
     [] {
         char value[8];
         return NLIBCFileGetKeyValue("/etc/long.conf", "last", value, sizeof(value), 0) > 0;
     }},
    {"key set", [] { return NLIBCFileSetKeyValue(kIni, "new", "v", nullptr) == 1; }},
    {"section set",
     [] {
         UniqueHash hash(NLIBCSzHashAlloc(0));
         return hash && NLIBCSzHashSetValue(hash.address(), "k", "v") >= 0 &&
                NLIBCFileSetSection(kIni, "pci", nullptr, hash.get(), nullptr) == 1;
     }},
    {"section remove", [] { return NLIBCFileRemoveSection(kIni, "pci") == 1; }},
    {"section enum", [] { return list_filled([](PNLIBSZLIST *list) { return NLIBCFileEnumSection(kIni, list); }); }},
    {"section get",
     [] {
         UniqueHash hash(NLIBCSzHashAlloc(0));
         return hash && NLIBCFileGetSection(kIni, "pci", hash.address()) > 0;
     }},
    {"lines", [] { return list_filled([](PNLIBSZLIST *list) { return NLIBCFileReadLines(kIni, list); }); }},
    {"exec", [] { return NLIBCExec("/bin/true", "a", "b") >= 0; }},
    {"popen",
     [] {
         FILE *stream = NLIBCPopen("/bin/true", "r", nullptr);
         return stream != nullptr && NLIBCPclose(stream) >= 0;
     }},
    {"disks", [] { return list_filled(NORVDiskSystemInstallationDeviceEnum); }},
    {"disks of a class",
     [] { return list_filled([](PNLIBSZLIST *list) { return external_disk_port_enum(kDiskPortInternal, list); }); }},
    {"disks there could be",
     [] {
         return list_filled([](PNLIBSZLIST *list) { return external_disk_port_enum_all(kDiskPortInternal, list); });
     }},
    {"enclosures", [] { return list_filled(enclosure_enum); }},
    {"all lamps of enclosures", [] { return enclosure_disk_led_set_host(1) == 0; }, kAnyCode},
    {"lamp of a disk", [] { return enclosure_disk_lamp_set("sda", kLampFault, true) == 0; }, kErrNoDevice},
    {"serial of an enclosure",
     [] { return text_told([](char *text, size_t size) { return enclosure_serial_get("0:0:12:0", text, size); }); },
     kAnyCode},
    {"identity of a disk", [] { return record_told(disk_identity_get, "sda"); }, kErrDiskIdentify},
    {"model of an expander", [] { return sas_expander_model_id_get("expander-0:0") >= 0; }},
    {"disks of expansion units", [] { return text_told(expansion_unit_disks_get); }},
    {"expansion unit of a disk", [] { return record_told(expansion_unit_place_get, "sdja"); }},
    {"mapped disk",
     [] { return text_told([](char *text, size_t size) { return mapped_disk_parent_get("cache", text, size); }); },
     kErrNoDevice},
    {"extension slot", [] { return extension_slot_find("/sys/devices/0000:00:01.0/x", nullptr) == 1; }},
    {"device in an extension slot", [] { return external_hw_is_device_on_PCI_extension_port("0000:05:00.0") == 1; },
     kAnyCode},
    {"place of an NVMe disk", [] { return record_told(nvme_place_get, "nvme0n1"); }},
    {"fan controller", [] { return text_told([](char *text, size_t size) { return fan_path_get(0, text, size); }); },
     kErrDeviceSearch},
    {"layout for the system",
     [] {
         int version = 0;
         return partition_layout_get_max(&version, false) == 0;
     }},
    {"partition made",
     [] {
         constexpr int kVersion = 6;
         return partition_create("sda", kPartitionData, &kVersion) == 0;
     },
     kErrChild},
    {"array stopped", [] { return raid_stop("/dev/md2") == 0; }, kErrChild},
    {"super block wiped", [] { return raid_clean_superblock("/dev/sda3") == 0; }, kErrChild},
    {"DHCP client", [] { return net_dhcp_client_start("eth0") == 0; }},
    {"partitions", [] { return list_filled([](PNLIBSZLIST *list) { return partition_path_enum(nullptr, list); }); }},
    {"members of the system",
     [] { return list_filled([](PNLIBSZLIST *list) { return partition_system_members(0, list); }); }},
    {"members of an array",
     [] {
         UniqueRaidDisks disks;
         return raid_members_get("/dev/md2", &disks) == 0 && disks;
     }},
    {"array assembled",
     [] {
         UniqueList members(NLIBCSzListAlloc(0));
         return members && NLIBCSzListPush(members.address(), "/dev/sda3") == 0 &&
                raid_assemble({"/dev/md2", nullptr, false, false, members.get(), kAssembleNoUpdate}) == 0;
     }},
    {"super block of an array", [] { return record_told(raid_superblock_get, "/dev/sda3"); }},
    {"arrays wiped", [] { return raid_clean_superblock_by_uuid("a") == 0; }},
    {"process keys",
     [] {
         const bool is_made = FHOSTProcessKeyInit() == 0;
         FHOSTProcessKeyFree();
         return is_made;
     },
     kErrSystemCall},
    {"root block read",
     [] {
         UniqueRootBlock block;
         return root_block_get("/dev/sda", block.address()) == 1 && block.get()->capability != nullptr;
     }},
    {"both root blocks written",
     [] {
         const UniqueRootBlock block(root_block_alloc());
         if (!block || root_block_update_capability(2, block.get()) != 0 ||
             root_block_set("/dev/sda", block.get()) != 0)
             return false;
         char magic[8] = ""; // without the backup, which a lack of memory may leave out, it is a success, too
         const UniqueFd disk(open("/dev/sda", O_RDONLY | O_CLOEXEC));
         return pread(disk.get(), magic, sizeof(magic), kDiskBytes - kRootBlockBackupHeader) == 8 && magic[0] == 'N';
     }},
    {"place on a disk", [] { return is_disk_offset_avail("/dev/sda", kRootBlockBodyAt); }},
    {"swap state", [] { return static_cast<bool>(UniqueJson(swap_json_file_read())); }},
    {"swap devices", [] { return static_cast<bool>(UniqueJson(swap_json_from_proc_swaps())); }},
    {"swap is on", [] { return is_swap_on("/dev/md1") == 1; }},
    {"interfaces",
     [] {
         NET_STAT *array = NetStatInit(4);
         const bool is_read = array != nullptr && NetStatGetAll(array, 4) == 1;
         NetStatFree(array);
         return is_read;
     }},
    {"order of interfaces",
     [] { return list_filled([](PNLIBSZLIST *list) { return net_seq_numbers_read(2, list); }); }},
    {"name server", [] { return text_told(NORVJNetGetDNS); }},
    {"parameters",
     [] {
         CgiRequest request = {};
         const bool is_loaded = NorvCgiLoadCGIParam(&request) == 1;
         const UniqueHash params(request.params);
         return is_loaded && NLIBCSzHashGetValue(request.params, "a") != nullptr;
     }},
    {"language", [] { return GetPreferredLang() != nullptr; }},
    {"status cache", [] { return RootInfoCacheSet("a", "b") == 0; }},
    {"power schedule",
     [] {
         constexpr NORVPowerSchedule kMorning = {1, 2, 7, 30};
         return power_schedule_write(PowerScheduleList::kOn, &kMorning, 1) == 0;
     }},
};

const std::string kBridge = "/sys/devices/pci0000:00/0000:00:01.0",
                  kExpander = kBridge + "/0000:01:00.0/host0/expander-0:0/0:0:12:0";

// The machine of these operations.
void machine_make(const PrivateRoot &root)
{
    root.write("/etc.defaults/norvinfo.conf",
               "supportraid=\"yes\"\ninternalportcfg=\"f\"\nusbportcfg=\"100\"\nsupplang=\"enu\"\nnetif_seq=\"1 0\"\n");
    root.write("/etc/a.ini", "a=1\n[pci]\nb=2\n[c]\nd=3\n");
    root.write("/etc/long.conf", std::string(40000, '#') + "\nlast=1\n");
    root.write("/etc/resolv.conf", "nameserver 10.0.0.1\n");
    root.write("/proc/net/dev", "1\n2\n  eth0: 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n");
    root.write("/proc/mounts", "");
    root.write("/proc/partitions",
               "major minor  #blocks  name\n\n   8        0        800 sda\n   8        3        400 sda3\n");
    root.write("/proc/swaps", "Filename Type Size Used Priority\n/dev/md1 partition 1 0 -1\n");
    root.write("/sys/block/md0/md/dev-sda1/state", "in_sync\n");
    root.write("/sys/block/md2/md/dev-sda3/state", "in_sync\n");
    root.write("/sys/block/md2/md/dev-sda3/slot", "0\n");
    root.write(kExpander + "/enclosure/1/fault", "0\n");
    root.write(kExpander + "/enclosure/1/device/block/sda/size", "1600\n");
    root.write(kExpander + "/scsi_generic/sg0/dev", "");
    root.write(kBridge + "/0000:05:00.0/nvme/nvme0/nvme0n1/size", "1600\n");
    root.write("/sys/block/dm-0/dm/name", "cache\n");
    root.write("/etc.defaults/extensionPorts", "[pci]\npci1=\"0000:00:01.0\"\n");
    root.write("/tmp/eunitinfo_1", "EUnitModel=\"NX4R-1\"\nEUnitDisks=\"sdja\"\n");
    root.write("/tmp/ADTFanPath/name", "adt7490\n");
    root.write("/dev/sg0", "");
    root.write("/sys/block/sda/size", "1600\n");
    root.write("/tmp/root_info.cache", "a=\"1\"\n");
    std::string disk(kDiskBytes, '\0');
    disk.replace(kRootBlockHeaderAt, kHandHeader.size(), kHandHeader);
    root.write("/dev/sda", disk.replace(kRootBlockBodyAt, kHandBody.size(), kHandBody));
}

// Programs that do nothing, and links of the device tree, from inside of the root.
void programs_make()
{
    for (const char *path :
         {"/bin/true", "/bin/sh", "/bin/cp", "/sbin/mdadm", "/sbin/pvs", "/sbin/sfdisk", "/sbin/udhcpc"}) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << true_program();
        chmod(path, 0755);
    }
    const std::pair<std::string, std::string> links[] = {
        {"/sys/class/enclosure/0:0:12:0", kExpander + "/enclosure"},
        {kExpander + "/enclosure/device", kExpander},
        {"/sys/block/nvme0n1", kBridge + "/0000:05:00.0/nvme/nvme0/nvme0n1"},
        {"/sys/bus/pci/devices/0000:00:01.0", kBridge}};
    for (const auto &[path, target] : links) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::filesystem::create_symlink(target, path);
    }
}

// The names beside a file, and what it holds.
std::vector<std::string> entries(const std::filesystem::path &file)
{
    std::vector<std::string> list;
    for (const auto &entry : std::filesystem::directory_iterator(file.parent_path()))
        list.push_back(entry.path().string());
    std::ifstream stream(file);
    list.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    return list;
}

// One try in a process of its own. Returns whether an allocation was failed.
int operation_try(const Operation &operation, int nth)
{
    return in_child([&] {
        openlog(nullptr, LOG_NDELAY, LOG_USER); // its descriptor counts as one of before
        const int lowest_free = open("/", O_RDONLY | O_CLOEXEC);
        close(lowest_free);
        const auto before = entries(kIni);
        bool succeeds = false, struck = false;
        int held = 0;
        {
            AllocFault fault(nth);
            succeeds = operation.succeeds();
            struck = fault.struck();
            held = fault.held();
        }
        EXPECT_EQ(succeeds, !struck);
        EXPECT_EQ(held, 0);
        if (struck) {
            if (operation.code != kAnyCode) {
                EXPECT_EQ(NLIBCErrGet(), operation.code);
            }
            EXPECT_EQ(entries(kIni), before);
        }
        EXPECT_EQ(open("/", O_RDONLY | O_CLOEXEC), lowest_free) << "a descriptor is left open";
        return struck ? 1 : 0;
    });
}

TEST(AllocFault, EveryOperationOnFilesFailsWhole)
{
    const DeviceAnswers answers({{"\x12\x01\x80", std::string("\0\x80\0\x04SN 1", 8)},
                                 {std::string("\x12\0", 2), scsi_inquiry_data(0, "MAKER", "DISK", "1")}},
                                kDiskBytes);
    setenv("REQUEST_METHOD", "GET", 1);
    setenv("QUERY_STRING", "a=b", 1);
    setenv("HTTP_ACCEPT_LANGUAGE", "en", 1);
    int points = 0;
    for (const Operation &operation : kOperations) {
        const PrivateRoot root;
        machine_make(root);
        points += root.run([&] {
            programs_make();
            int nth = 1;
            for (int struck = 1; struck == 1; nth++) {
                SCOPED_TRACE(testing::Message() << operation.name << ", allocation " << nth);
                struck = operation_try(operation, nth);
            }
            EXPECT_GT(nth, 2) << operation.name << " allocates nothing";
            return nth - 2;
        });
    }
    points_tried(points);
}

} // namespace

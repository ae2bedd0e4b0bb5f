// Files of /proc and /sys, each through the reader of its path. The input's first byte chooses the file by its letter,
// a capital one for a file that is not there; the rest is what stands in it.
// Covers: swap/swap_json_from_proc_swaps.cpp(line_object swap_json_from_proc_swaps) swap/is_swap_on.cpp
// Covers: zram/zram_cores_get.cpp(zram_cores_get) storage/partition_path_enum.cpp(name_column is_wanted
// Covers: partition_path_enum) storage/partition_start_size_get.cpp storage/raid_members_get.cpp(member_read)
// Covers: storage/raid_sync_action_get.cpp external/sys_attribute.cpp external/hardware_model_get.cpp
// Covers: install/system_migration_bits.cpp(boot_device_read) net/net_internal_lan_num_get.cpp
// Covers: net/system_first_vender_mac_addr_get.cpp net/net_seq_numbers.cpp(key_choose) external/hw_buzzer_mask.cpp
// Covers: findhost/reply_facts.cpp(fhost_serial_read fhost_serial_short) net/net_rename_eth.cpp(NetIsIfUp)
// Covers: external/sas_model.cpp(sas_phy_id_get) disk/disk_is_ssd.cpp
// Covers: manutil/vender_store.cpp(vender_format_version_get) lib/conf_is_vmm_vnos.cpp
#include <algorithm>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "external/hardware_model.h"
#include "external/hw_control.h"
#include "external/sas.h"
#include "external/sys_attribute.h"
#include "findhost/reply_facts.h"
#include "install/system_status.h"
#include "lib/conf.h"
#include "manutil/vender.h"
#include "net/net.h"
#include "net/net_seq.h"
#include "storage/partition.h"
#include "storage/raid_parts.h"
#include "swap/swap.h"
#include "swap/swap_json.h"
#include "tests/fuzz/file_root.h"
#include "tests/fuzz/fuzz.h"
#include "zram/zram.h"

namespace
{

void swaps_read()
{
    const UniqueJson lines(swap_json_from_proc_swaps());
    check(!lines || json_object_is_type(lines.get(), json_type_array) != 0);
    check(is_swap_on("/dev/md1") <= 1);
}

void partitions_read()
{
    static constexpr PartitionFilter kFilters[] = {{"sd", 0}, {nullptr, 1}};
    UniqueList all(NLIBCSzListAlloc(0));
    const int count = partition_path_enum(nullptr, all.address());
    check(count == -1 || count == all.get()->nItem);
    for (int i = 0; i < all.get()->nItem; i++)
        check(strncmp(all.get()->items[i], "/dev/", 5) == 0 && strpbrk(all.get()->items[i], " \t") == nullptr);
    for (const PartitionFilter &filter : kFilters) {
        UniqueList some(NLIBCSzListAlloc(0));
        check(partition_path_enum(&filter, some.address()) <= std::max(count, 0) || count == -1);
    }
}

void extent_read()
{
    uint64_t start = 0, size = 0;
    const int result = partition_start_size_get("sda", 1, &start, &size);
    check(result == 1 || result == -1); // the folder is there
    check(partition_start_size_get("sda", 2, &start, &size) == 0);
    check(partition_start_size_get("sdb", 1, &start, &size) == -1);
}

void members_read()
{
    UniqueRaidDisks disks;
    check(raid_members_get("/dev/md2", &disks) == 0);
    for (const RaidDisk *disk = disks.get(); disk != nullptr; disk = disk->next)
        check(strcmp(disk->path, "/dev/sda3") == 0 && disk->state >= kRaidDiskNormal && disk->state < kRaidDiskNone);
}

void attribute_read()
{
    char text[8];
    const bool is_there = sys_attribute_read("/sys/attribute", text, sizeof(text));
    check(is_there == (text[0] != '\0') && strnlen(text, sizeof(text)) < sizeof(text));
    check(strpbrk(text, "\n") == nullptr && text[0] != ' ');
    check(sys_attribute_hex("/sys", "attribute") >= -1);
    const std::string_view name = sys_path_component(text, "h");
    check(name.empty() || (name[0] == 'h' && name.find('/') == name.npos));
}

void revision_read()
{
    UniqueList numbers(NLIBCSzListAlloc(0));
    check(net_seq_numbers_read(2, numbers.address()) == 0 && numbers.get()->nItem >= 1);
    check(buzzer_mask_get() == 1 || buzzer_mask_get() == 2);
}

void version_read()
{
    char model[64];
    const bool is_there = hardware_model_get(model, sizeof(model));
    check(is_there || model[0] == '\0');
    check(strnlen(model, sizeof(model)) < sizeof(model) && strstr(model, "-j") == nullptr);
    const int is_virtual = NLIBCConfIsVmmVnos();
    check(is_virtual == 0 || is_virtual == 1);
}

void serial_read()
{
    char serial[kFhostSerialRoom];
    const int length = fhost_serial_read(serial);
    if (length < 0)
        return;
    check(strlen(serial) == static_cast<size_t>(length));
    const char *brief = fhost_serial_short(serial, length);
    check(brief == nullptr || (brief >= serial && brief < serial + length));
}

constexpr FuzzFile kFiles[] = {
    {'s', "/proc/swaps", swaps_read},
    {'c', "/proc/cpuinfo", [] { check(zram_cores_get() != 0); }},
    {'p', "/proc/partitions", partitions_read},
    {'k', "/proc/cmdline", [] { static_cast<void>(system_migration_bits()); }},
    {'b', "/sys/block/sda/sda1/start", extent_read},
    {'e', "/sys/block/sda/sda1/size", extent_read},
    {'r', "/sys/block/sda/queue/rotational", [] { check(disk_is_ssd("sda") >= -1 && disk_is_ssd("sda") <= 1); }},
    {'m', "/sys/block/md2/md/dev-sda3/state", members_read},
    {'o', "/sys/block/md2/md/dev-sda3/slot", members_read},
    {'y', "/sys/block/md2/md/sync_action",
     [] { check(raid_sync_action_get("/dev/md2") >= -1 && raid_sync_action_get("/dev/md2") <= kSyncRecover); }},
    {'f', "/sys/class/net/eth0/flags", [] { check(NetIsIfUp("eth0") <= 1 && NetIsIfUp(nullptr) == 0); }},
    {'h', "/sys/class/sas_phy/phy-0:0/phy_identifier", [] { check(sas_phy_id_get("phy-0:0") <= UINT8_MAX); }},
    {'a', "/sys/attribute", attribute_read},
    {'v', "/proc/sys/kernel/norv_hw_version", version_read},
    {'w', "/proc/sys/kernel/norv_hw_revision", revision_read},
    {'n', "/proc/sys/kernel/norv_internal_netif_num", [] { check(NetInternalLanNumGet() != 0); }},
    {'u', "/proc/sys/kernel/norv_serial", serial_read},
    {'t', "/proc/sys/kernel/norv_mac_address1",
     [] {
         uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
         check(system_first_vender_mac_addr_get(mac) == 0 || (mac[0] == 1 && mac[5] == 6));
     }},
    {'d', "/proc/sys/kernel/norv_vender_format_version",
     [] {
         uint32_t version;
         check(vender_format_version_get(&version) <= 0);
     }},
};

} // namespace

void fuzz_begin()
{
    file_root_enter();
    file_root_put("/etc.defaults/norvinfo.conf", "unique=\"norv_x86_fuzz\"\nmaxdisks=\"4\"\nusbportcfg=\"0xf0\"\n"
                                                 "internalportcfg=\"0xf\"\nnetif_seq=\"0 1\"\nnetif_seq_r2=\"1 0\"\n"
                                                 "buzzeroffen=\"1\"\nbuzzeroffen_r2=\"0x2\"\nmaxlanport=\"2\"\n");
    file_root_put("/sys/block/sdb/sdb1/start/a_folder", "");
    for (const FuzzFile &file : kFiles)
        file_root_put(file.path, "1\n");
}

void fuzz_one(std::string_view input)
{
    file_root_run(kFiles, input, true);
}

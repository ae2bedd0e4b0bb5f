// Names of disks and partitions, as users, the kernel's listings and links give them.
// Covers: disk/disk_name.cpp disk/disk_partition_num_get.cpp disk/disk_partition_num_remove.cpp
// Covers: disk/disk_device_partition_name_get.cpp(disk_device_partition_name_get) disk/disk_path_parse.cpp(is_sas_name
// Covers: expansion_index disk_path_parse) disk/external_disk_port_check.cpp(has_bit esata_check mask_check
// Covers: disk_container_get)
#include <vector>

#include "disk/disk.h"
#include "tests/fuzz/file_root.h"
#include "tests/fuzz/fuzz.h"

namespace
{

// A name is taken apart and put together again, as long as its parts are of one kind and the disk's name is not cut.
void parts_check(const char *path)
{
    std::vector<char> disk(strlen(path) + 1), again(strlen(path) + 16);
    check(disk_device_path_get(path, again.data(), again.size()) > 0 && again[0] == '/');
    const int number = disk_partition_num_get(path, disk.data(), static_cast<int>(disk.size()));
    if (number > 0 && strlen(disk_bare_name(disk.data())) < 32 &&
        disk_name_has_p(disk.data()) == disk_name_has_p(path) &&
        disk_device_partition_name_get(disk.data(), number, again.data(), static_cast<int>(again.size())) == 0) {
        std::vector<char> other(again.size());
        check(disk_partition_num_get(again.data(), other.data(), static_cast<int>(other.size())) == number);
    }
    check(disk_partition_num_remove(path, disk.data(), static_cast<int>(disk.size())) == 0);
    check(strncmp(disk.data(), path, strlen(disk.data())) == 0);
    check(disk_partition_num_remove(path, disk.data(), static_cast<int>(strlen(path))) == -1);
}

} // namespace

void fuzz_begin()
{
    file_root_enter();
    file_root_put("/etc.defaults/norvinfo.conf",
                  "supportnvme=\"yes\"\nmaxdisks=\"4\"\ninternalportcfg=\"0xf\"\nesataportcfg=\"0x30\"\n"
                  "usbportcfg=\"0xf00\"\ncacheportcfg=\"0xf000\"\n");
    file_root_put("/tmp/eunitinfo_1", "EUnitModel=\"NX4R-1\"\nEUnitDisks=\"/dev/sdea,/dev/sdeb\"\n");
}

void fuzz_one(std::string_view input)
{
    const std::string text(input);
    const char *path = text.c_str();
    parts_check(path);
    check(disk_letter_index(path) >= -1);
    const int type = external_disk_port_check(path), container = disk_container_get(path);
    check(type >= 0 && (container == -1 || container == disk_port_to_container(type)));
    DiskLocation location;
    if (disk_path_parse(path, &location) == 0)
        check(location.container == container && location.partition >= 0);
}

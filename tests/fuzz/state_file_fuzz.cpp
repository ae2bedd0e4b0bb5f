// Files that programs of the system leave for each other, where any program may have written, and what a mounted
// system says of itself. The input's first byte chooses the file by its letter, a capital one for a file that is not
// there; the rest is what stands in it.
// Covers: swap/swap_json.cpp(swap_json_file_read swap_json_get swap_state_is swap_state_check)
// Covers: install/download_state.cpp(download_state_read download_is_alive) external/power_schedule_file.cpp(unpack
// Covers: list_read power_schedule_read) install/mem_test_progress.cpp external/expansion_unit.cpp
// Covers: install/disk_sys_info_fill.cpp lib/system/system_info.cpp lib/system/system_endian_get.cpp
// Covers: lib/system/system_bit_get.cpp lib/system/system_platform_get.cpp install/get_preferred_lang.cpp
// Covers: storage/raid_repair_progress.cpp(raid_repair_progress_get)

#include "external/expansion_unit.h"
#include "external/power_schedule.h"
#include "install/cgi.h"
#include "install/download_state.h"
#include "install/mem_test_progress.h"
#include "install/system_status.h"
#include "lib/system/system.h"
#include "storage/raid.h"
#include "swap/swap_json.h"
#include "tests/fuzz/file_root.h"
#include "tests/fuzz/fuzz.h"

namespace
{

void swap_state_read()
{
    const UniqueJson object(swap_json_file_read());
    if (!object)
        return;
    static_cast<void>(swap_json_get(object.get(), "Filename"));
    check(swap_state_is(object.get(), kSwapRunning) == (swap_state_check(object.get(), kSwapRunning) == 0));
    check(swap_json_file_write(object.get(), kSwapRunning) == 0);
    const UniqueJson again(swap_json_file_read());
    check(again && swap_state_is(again.get(), kSwapRunning));
}

void download_read()
{
    DownloadState state;
    if (download_state_read(&state) != 0)
        return;
    check(state.percent >= 0 && state.bytes >= 0);
    check_ended(state.file);
    check_ended(state.link);
}

void schedule_read()
{
    NORVPowerSchedule entries[kPowerSchedulesMax];
    for (const PowerScheduleList list : {PowerScheduleList::kOn, PowerScheduleList::kOff}) {
        const int count = power_schedule_read(list, entries, kPowerSchedulesMax);
        check(count >= 0 && count <= kPowerSchedulesMax);
        for (int i = 0; i < count; i++)
            check(entries[i].enabled <= 1 && entries[i].weekdays <= 0x7f && entries[i].hour <= 0x1f &&
                  entries[i].minute <= 0x3f);
    }
}

void unit_read()
{
    char names[256];
    if (expansion_unit_disks_get(names, sizeof(names)) == 0)
        check_ended(names);
    ExpansionUnitPlace place = {};
    if (expansion_unit_place_get("sdea", &place) == 1) {
        check(place.position >= 1);
        check_ended(place.model);
    }
}

void system_read()
{
    disk_sys_info_fill();
    const DiskSysInfo &info = gDiskSysInfo;
    check_ended(info.model);
    check_ended(info.version);
    check_ended(info.platform);
    check_ended(info.admin_port);
    check(system_bit_get(nullptr, nullptr) == 64);
    check(info.endian >= 0 && info.bits >= 0 && info.max_align >= 0);
}

// The value goes unescaped into a page and a list of options, so nothing but a number may come of this file.
void settings_read()
{
    disk_sys_info_fill();
    const long port = strtol(gDiskSysInfo.admin_port, nullptr, 10);
    check(strspn(gDiskSysInfo.admin_port, "0123456789") == strlen(gDiskSysInfo.admin_port));
    check(port >= 1 && port <= 65535);
}

constexpr FuzzFile kFiles[] = {
    {'s', kSwapStatePath, swap_state_read},
    {'d', kDownloadStatusPath, download_read},
    {'p', kDownloadPidPath, [] { static_cast<void>(download_is_alive()); }},
    {'w', "/etc/power_sched.conf", schedule_read},
    {'m', "/tmp/memtester.progress",
     [] {
         unsigned long current = 0, total = 0;
         check(GetMemTestProgress(&current, &total) != 0 || mem_test_hundredths(current, total) <= 9999);
     }},
    {'u', "/tmp/eunitinfo_1", unit_read},
    {'r', "/etc/raid/progress_repair/md2_19700101_000000",
     [] {
         uint64_t sectors;
         check(raid_repair_progress_get("/dev/md2", 0, &sectors) <= 0);
     }},
    {'c', "/tmpRoot/etc.defaults/norvinfo.conf", system_read},
    {'v', "/tmpRoot/etc.defaults/VERSION", system_read},
    {'e', "/tmpRoot/.system_info/endian", system_read},
    {'b', "/tmpRoot/.system_info/bits", system_read},
    {'a', "/tmpRoot/.system_info/pgsql_alignment", system_read},
    {'n', "/tmpRoot/usr/norv/etc/www/NOS.json", settings_read},
    {'l', "HTTP_ACCEPT_LANGUAGE", [] { check(GetPreferredLang() == nullptr || strlen(GetPreferredLang()) == 3); }},
};

} // namespace

void fuzz_begin()
{
    setenv("TZ", "UTC", 1);
    file_root_enter();
    file_root_put("/etc.defaults/norvinfo.conf", "supplang=\"enu,ger,fre,cht,chs,ptb,dan\"\n");
}

void fuzz_one(std::string_view input)
{
    file_root_run(kFiles, input, false);
}

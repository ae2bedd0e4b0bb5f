#include "applets/mantool.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "applets/applets.h"
#include "applets/command.h"
#include "applets/not_built_in.h"
#include "product.h"

static constexpr Command kCommands[] = {
    {"-mw", nullptr, "mantool -mw <offset> <value>\n  ex: mantool -mw 0x10 0xff\n"},
    {"-md", nullptr, "mantool -md <offset>\n  ex: mantool -md 0x10\n"},
    {"-gpio_write", nullptr, "mantool -gpio_write <pin> <value>\n  ex: mantool -gpio_write 10 1\n"},
    {"-gpio_read", nullptr, "mantool -gpio_read <pin>\n  ex: mantool -gpio_read 10\n"},
    {"-uart2", nullptr, "mantool -uart2 w <cmd>\n  ex: mantool -uart2 w 2\n"},
    {"-button_test", nullptr, "mantool -button_test <enable/disable>\n  ex: mantool -button_test enable\n"},
    {"-rtc_get", nullptr, "mantool -rtc_get\n"},
    {"-rtc_set", SetTimeCommand,
     "mantool -rtc_set <yyyy/mm/dd> <hh:mm:ss>\n  ex: mantool -rtc_set 2021/08/04 12:30:00\n"},
    {"-temperature", nullptr, "mantool -temperature\n"},
    {"-cpu_temp", nullptr, "mantool -cpu_temp [core, from 1]\n  ex: mantool -cpu_temp 2\n"},
    {"-fan_status_get", nullptr, "mantool -fan_status_get\n"},
    {"-mac_get", nullptr, "mantool -mac_get [n]\n  ex: mantool -mac_get 2\n"},
    {"-mac_set", nullptr, "mantool -mac_set [n] <XXXXXXXXXXXX>\n  ex: mantool -mac_set 2 0200000A0B0C\n"},
    {"-sn_get", nullptr, "mantool -sn_get\n"},
    {"-sn_set", nullptr, "mantool -sn_set <serial>\n"},
    {"-vender_version_get", nullptr, "mantool -vender_version_get\n"},
    {"-custom_sn_set", nullptr, "mantool -custom_sn_set <up to 31 characters>\n"},
    {"-auto_poweron_enable", nullptr,
     "mantool -auto_poweron_enable <0xWWHHMM> ...\n"
     "  WW: weekdays, bit 0 Sunday to bit 6 Saturday\n"
     "  HH: hour, 00 to 17 in hexadecimal\n"
     "  MM: minute, 00 to 3B in hexadecimal\n"
     "  ex: mantool -auto_poweron_enable 0x3E081E\n"},
    {"-auto_poweron_disable", nullptr, "mantool -auto_poweron_disable\n"},
    {"-auto_poweron_get", nullptr, "mantool -auto_poweron_get <num>\n  ex: mantool -auto_poweron_get 1\n"},
    {"-wol_enable", nullptr, "mantool -wol_enable <device>\n  ex: mantool -wol_enable eth0\n"},
    {"-wol_disable", nullptr, "mantool -wol_disable <device>\n  ex: mantool -wol_disable eth0\n"},
    {"-wol_get", nullptr, "mantool -wol_get <device>\n  ex: mantool -wol_get eth0\n"},
    {"-test_flag_init", nullptr, "mantool -test_flag_init\n"},
    {"-test_flag_reset", nullptr, "mantool -test_flag_reset\n"},
    {"-test_flag_list", nullptr, "mantool -test_flag_list\n"},
    {"-test_flag_help", nullptr, "mantool -test_flag_help\n"},
    {"-test_flag_set", nullptr, "mantool -test_flag_set <name> <value>\n  ex: mantool -test_flag_set FTF_USB 1\n"},
    {"-test_flag_get", nullptr, "mantool -test_flag_get <name>\n  ex: mantool -test_flag_get FTF_USB\n"},
    {"-set_pwm", nullptr, "mantool -set_pwm <Vxx/Wyy>\n  ex: mantool -set_pwm V05\n"},
    {"-set_hddfaulty", nullptr,
     "mantool -set_hddfaulty <disk> <on/off> [internal/sys]\n  ex: mantool -set_hddfaulty 1 on internal\n"},
    {"-mem_write", nullptr, "mantool -mem_write <addr> <value>\n  ex: mantool -mem_write 0xfed80000 0x1\n"},
    {"-mem_read", nullptr, "mantool -mem_read <addr>\n  ex: mantool -mem_read 0xfed80000\n"},
    {"-log", nullptr, "mantool -log <text>\n  ex: mantool -log \"burn-in passed\"\n"},
    {"-usb3_dwng", nullptr, "mantool -usb3_dwng <SCSI disk device>\n  ex: mantool -usb3_dwng /dev/sdq\n"},
    {"-led_mask_on", nullptr, "mantool -led_mask_on\n"},
    {"", nullptr, ""},
};
static_assert(std::size(kCommands) == 37);

void mantool_usage_print()
{
    puts(kProductFactoryNotice);
    command_usage_print(kCommands);
}

int mantool_main(int argc, char *argv[])
{
    if (argc < 2 || strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "-help") == 0) {
        mantool_usage_print();
        return 0;
    }
    switch (command_run(kCommands, argc, argv)) {
    case CommandEnd::kUnknown:
        puts("Arguments err, please refer follow ");
        mantool_usage_print();
        return 0;
    case CommandEnd::kNotBuiltIn:
        return not_built_in(argc, argv);
    case CommandEnd::kDone:
    case CommandEnd::kFailed: // whoever called reads the output
        break;
    }
    return 0;
}

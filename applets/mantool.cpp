#include "applets/mantool.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "applets/applets.h"
#include "applets/command.h"
#include "product.h"

static constexpr Command kCommands[] = {
    {"-mw", man_byte_write, "mantool -mw <offset> <value>\n  ex: mantool -mw 0x10 0xff\n"},
    {"-md", man_byte_read, "mantool -md <offset>\n  ex: mantool -md 0x10\n"},
    {"-gpio_write", man_gpio_write, "mantool -gpio_write <pin> <value>\n  ex: mantool -gpio_write 10 1\n"},
    {"-gpio_read", man_gpio_read, "mantool -gpio_read <pin>\n  ex: mantool -gpio_read 10\n"},
    {"-uart2", man_uart_write, "mantool -uart2 w <cmd>\n  ex: mantool -uart2 w 2\n"},
    {"-button_test", man_button_test, "mantool -button_test <enable/disable>\n  ex: mantool -button_test enable\n"},
    {"-rtc_get", man_rtc_get, "mantool -rtc_get\n"},
    {"-rtc_set", SetTimeCommand,
     "mantool -rtc_set <yyyy/mm/dd> <hh:mm:ss>\n  ex: mantool -rtc_set 2021/08/04 12:30:00\n"},
    {"-temperature", man_temperature, "mantool -temperature\n"},
    {"-cpu_temp", man_cpu_temperature, "mantool -cpu_temp [core, from 1]\n  ex: mantool -cpu_temp 2\n"},
    {"-fan_status_get", man_fan_status_get, "mantool -fan_status_get\n"},
    {"-mac_get", man_mac_get, "mantool -mac_get [n]\n  ex: mantool -mac_get 2\n"},
    {"-mac_set", man_mac_set, "mantool -mac_set [n] <XXXXXXXXXXXX>\n  ex: mantool -mac_set 2 0200000A0B0C\n"},
    {"-sn_get", man_sn_get, "mantool -sn_get\n"},
    {"-sn_set", man_sn_set, "mantool -sn_set <serial>\n"},
    {"-vender_version_get", man_vender_version_get, "mantool -vender_version_get\n"},
    {"-custom_sn_set", man_custom_sn_set, "mantool -custom_sn_set <up to 31 characters>\n"},
    {"-auto_poweron_enable", man_auto_poweron_enable,
     "mantool -auto_poweron_enable <0xWWHHMM> ...\n"
     "  WW: weekdays, bit 0 Sunday to bit 6 Saturday\n"
     "  HH: hour, 00 to 17 in hexadecimal\n"
     "  MM: minute, 00 to 3B in hexadecimal\n"
     "  ex: mantool -auto_poweron_enable 0x3E081E\n"},
    {"-auto_poweron_disable", man_auto_poweron_disable, "mantool -auto_poweron_disable\n"},
    {"-auto_poweron_get", man_auto_poweron_get, "mantool -auto_poweron_get <num>\n  ex: mantool -auto_poweron_get 1\n"},
    {"-wol_enable", man_wol_enable, "mantool -wol_enable <device>\n  ex: mantool -wol_enable eth0\n"},
    {"-wol_disable", man_wol_disable, "mantool -wol_disable <device>\n  ex: mantool -wol_disable eth0\n"},
    {"-wol_get", man_wol_get, "mantool -wol_get <device>\n  ex: mantool -wol_get eth0\n"},
    {"-test_flag_init", man_test_flag_init, "mantool -test_flag_init\n"},
    {"-test_flag_reset", man_test_flag_reset, "mantool -test_flag_reset\n"},
    {"-test_flag_list", man_test_flag_list, "mantool -test_flag_list\n"},
    {"-test_flag_help", man_test_flag_help, "mantool -test_flag_help\n"},
    {"-test_flag_set", man_test_flag_set,
     "mantool -test_flag_set <name> <value>\n  ex: mantool -test_flag_set FTF_USB 1\n"},
    {"-test_flag_get", man_test_flag_get, "mantool -test_flag_get <name>\n  ex: mantool -test_flag_get FTF_USB\n"},
    {"-set_pwm", man_fan_pwm_set, "mantool -set_pwm <Vxx/Wyy>\n  ex: mantool -set_pwm V05\n"},
    {"-set_hddfaulty", man_disk_fault_led,
     "mantool -set_hddfaulty <disk> <on/off> [internal/sys]\n  ex: mantool -set_hddfaulty 1 on internal\n"},
    {"-mem_write", man_memory_write, "mantool -mem_write <addr> <value>\n  ex: mantool -mem_write 0xfed80000 0x1\n"},
    {"-mem_read", man_memory_read, "mantool -mem_read <addr>\n  ex: mantool -mem_read 0xfed80000\n"},
    {"-log", man_log, "mantool -log <text>\n  ex: mantool -log \"burn-in passed\"\n"},
    {"-usb3_dwng", man_usb3_downgrade, "mantool -usb3_dwng <SCSI disk device>\n  ex: mantool -usb3_dwng /dev/sdq\n"},
    {"-led_mask_on", man_led_mask_on, "mantool -led_mask_on\n"},
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
    if (command_run(kCommands, argc, argv) == CommandEnd::kUnknown) {
        puts("Arguments err, please refer follow ");
        mantool_usage_print();
    }
    return 0; // also for a command that failed: whoever called reads the output
}

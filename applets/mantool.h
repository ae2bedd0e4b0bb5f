// Commands of the factory tool. They take the process's arguments, print their answer on standard output and return 0;
// -1 when something failed or was wrong, which they say there too.
#pragma once

#include "external/board_device.h"

// Prints the tool's usage text.
void mantool_usage_print();
// The same for wrong arguments. Returns -1.
int mantool_usage_error();

// Sets the system's clock and the board's to a local date and time, "yyyy/mm/dd" and "hh:mm:ss", and prints what the
// board then tells.
int SetTimeCommand(int argc, char *argv[]);

// One request to the board, whose failure is told by `name`. Returns 0; -1.
int man_board_ask(BoardRequest request, const char *name, void *record);

// The board.
int man_byte_write(int argc, char *argv[]);
int man_byte_read(int argc, char *argv[]);
int man_gpio_write(int argc, char *argv[]);
int man_gpio_read(int argc, char *argv[]);
int man_memory_write(int argc, char *argv[]);
int man_memory_read(int argc, char *argv[]);
int man_uart_write(int argc, char *argv[]);
int man_button_test(int argc, char *argv[]);
int man_rtc_get(int argc, char *argv[]);
int man_temperature(int argc, char *argv[]);
int man_cpu_temperature(int argc, char *argv[]);
int man_fan_status_get(int argc, char *argv[]);
int man_fan_pwm_set(int argc, char *argv[]);
int man_disk_fault_led(int argc, char *argv[]);
int man_led_mask_on(int argc, char *argv[]);

// What leads elsewhere: a line to the factory's log server, a command to a USB flash device.
int man_log(int argc, char *argv[]);
int man_usb3_downgrade(int argc, char *argv[]);

// Power-on schedules and wake-on-LAN.
int man_auto_poweron_enable(int argc, char *argv[]);
int man_auto_poweron_disable(int argc, char *argv[]);
int man_auto_poweron_get(int argc, char *argv[]);
int man_wol_enable(int argc, char *argv[]);
int man_wol_disable(int argc, char *argv[]);
int man_wol_get(int argc, char *argv[]);

// The factory's record.
int man_mac_get(int argc, char *argv[]);
int man_mac_set(int argc, char *argv[]);
int man_sn_get(int argc, char *argv[]);
int man_sn_set(int argc, char *argv[]);
int man_vender_version_get(int argc, char *argv[]);
int man_custom_sn_set(int argc, char *argv[]);
int man_test_flag_init(int argc, char *argv[]);
int man_test_flag_reset(int argc, char *argv[]);
int man_test_flag_list(int argc, char *argv[]);
int man_test_flag_help(int argc, char *argv[]);
int man_test_flag_set(int argc, char *argv[]);
int man_test_flag_get(int argc, char *argv[]);

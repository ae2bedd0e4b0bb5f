// What the roles say and how they end before their work begins, byte for byte.
#include <gtest/gtest.h>
#include <string>

#include "tests/support/rows.h"

namespace
{

constexpr char kBanner[] = "Copyright (c) 2003-2021 Norvessa, Inc. All rights reserved.\n";
constexpr char kHwctrlUsage[] =
    "norvhwctrl -set_stat_led <run/shutdown/nodisk/usbcopy_on/usbcopy_off/usbcopy_blinking/"
    "memtest_on/memtest_off/memtest_blinking>\n"
    "  ex: norvhwctrl -set_stat_led nodisk\n"
    "norvhwctrl -set_led <usbcopy_on/usbcopy_off/usbcopy_blinking/memtest_on/memtest_off/memtest_blinking/"
    "power_green_on/power_green_off/power_orange_on/power_orange_off>\n"
    "  ex: norvhwctrl -set_led power_orange_off\n";
constexpr char kSwapUsage[] = "Usage: norv_swap_ctl\n"
                              "--on <dev>      ex: mkswap dev and swapon dev\n"
                              "--off <dev>     ex: swapoff dev\n"
                              "--start         ex: assemble md1 and swapon it\n"
                              "--stop          ex: swapoff md1 and disassemble it\n";
const std::string kExtractUsage = std::string(kBanner) + "norv_extract_system_patch PATCH_PATH DEST_PATH\n";
const std::string kStorageUsage = std::string(kBanner) +
                                  "Usage:\n    norvstgcore --is-compatible-disk <DISK_PATH>\n"
                                  "    norvstgcore --update-capability <DISK_PATH> --capability <CAPABILITY>\n";

TEST(OuterForms, OutputAndExitStatus)
{
    const std::string fly = std::string("command error\n") + kHwctrlUsage;
    const struct {
        int exit_status;
        std::string out;
        const char *commands;
    } kCases[] = {
        {0, kBanner, "ncemd --help\nmanutild --help"},
        {255, kBanner, "findhostd --help"},
        {0, kHwctrlUsage, "norvhwctrl\nnorvhwctrl -h\nnorvhwctrl -help -set_led\nnorvhwctrl --help"},
        {1, fly, "norvhwctrl -fly\nnorvhwctrl ''"},
        {255, "", "norvssdcache\nnorvssdcache --check --check"},
        {0, "", "norvssdcache -check"},
        {255, kExtractUsage, "norv_extract_system_patch\nnorv_extract_system_patch a b c"},
        // Only the first option counts, and -o may be on or off.
        {255, kSwapUsage,
         "norv_swap_ctl\nnorv_swap_ctl md1\nnorv_swap_ctl --fly --start\nnorv_swap_ctl --start=now\n"
         "norv_swap_ctl -o /dev/md1"},
        {255, kStorageUsage,
         "norvstgcore\nnorvstgcore --help\nnorvstgcore /dev/sda\nnorvstgcore --fly --is-compatible-disk\n"
         "norvstgcore --capability 1\nnorvstgcore --capability 1 --fly --update-capability /dev/sda\n"
         "norvstgcore --update-capability /dev/sda --capability x\n"
         "norvstgcore --update-capability /dev/sda --capability\n"
         "norvstgcore --is-compatible-disk /dev/sda --help"},
        {255, "error\n", "norvstgcore --is-compatible-disk\nnorvstgcore --is-compatible-disk /dev/sda --fly"},
        // With -up and -ca apart the disk is forgotten.
        {255, "",
         "norvstgcore --update-capability /dev/sda\n"
         "norvstgcore --update-capability /dev/sda --capability ffffffff\nnorvstgcore -up /dev/sda --fly -ca 1"},
    };
    Sandbox box;
    for (const auto &[exit_status, out, commands] : kCases)
        for (const std::string &command : lines(commands)) {
            SCOPED_TRACE(command);
            const Result result = box.run(words(command));
            EXPECT_EQ(result.exit_status, exit_status);
            EXPECT_EQ(result.out, out);
            EXPECT_EQ(result.err.find("not built in"), std::string::npos);
        }
    EXPECT_EQ(box.programs_called(), "");
}

TEST(OuterForms, SwapDeviceIsMissing)
{
    Sandbox box;
    for (const char *option : {"--on", "-off", "-n", "-f"}) {
        SCOPED_TRACE(option);
        const Result result = box.run({"norv_swap_ctl", option});
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_EQ(result.out, kSwapUsage);
        EXPECT_EQ(result.record.count("log err norv_swap_ctl.cpp:* *(*): Invalid arguments"), 1);
    }
}

// The factory tool's answers always end with 0; its usage names every command, in the order of the commands.
TEST(OuterForms, FactoryToolUsage)
{
    const char *const kCommands =
        "-mw -md -gpio_write -gpio_read -uart2 -button_test -rtc_get -rtc_set -temperature -cpu_temp -fan_status_get "
        "-mac_get -mac_set -sn_get -sn_set -vender_version_get -custom_sn_set -auto_poweron_enable "
        "-auto_poweron_disable -auto_poweron_get -wol_enable -wol_disable -wol_get -test_flag_init -test_flag_reset "
        "-test_flag_list -test_flag_help -test_flag_set -test_flag_get -set_pwm -set_hddfaulty -mem_write -mem_read "
        "-log -usb3_dwng -led_mask_on";
    Sandbox box;
    const std::string usage = box.run({"mantool"}).out;
    size_t at = 0;
    for (const std::string &command : words(kCommands)) {
        const std::string line = "\nmantool " + command;
        at = usage.find(line, at);
        ASSERT_NE(at, std::string::npos) << command;
        at += line.size();
        EXPECT_TRUE(usage[at] == ' ' || usage[at] == '\n') << command;
    }
    for (const char *word : {"-h", "-help"})
        EXPECT_EQ(box.run({"mantool", word}).out, usage);
    for (const char *word : {"--help", "-mwx", "-m", ""}) {
        SCOPED_TRACE(word);
        const Result result = box.run({"mantool", word});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, "Arguments err, please refer follow \n" + usage);
    }
}

} // namespace

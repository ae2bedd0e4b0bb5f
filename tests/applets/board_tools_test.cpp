// The tools that talk to the board: each form, the requests it makes, what it prints.
#include "tests/support/box_controller.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf";

struct Case {
    std::string args;
    std::string board; // lines of the board's transcript
    int exit_status = 0;
    const char *out = "";
};

void cases_run(Sandbox &box, const std::string &role, const std::vector<Case> &cases)
{
    for (const Case &row : cases) {
        const Result result = box.run(words(row.args, role));
        EXPECT_EQ(result.exit_status, row.exit_status) << row.args;
        EXPECT_EQ(result.record.text("board *"), row.board) << row.args;
        EXPECT_EQ(result.out, row.out) << row.args;
    }
}

std::string control(const std::string &code, const std::string &length, const std::string &data)
{
    return "board 0xc0904b01 control " + code + " " + length + " \"" + data + "\"\n";
}

TEST(Norvhwctrl, EachNameSendsItsControl)
{
    Sandbox box;
    box.file(kDefaults, "");
    cases_run(box, "norvhwctrl",
              {
                  {"-set_stat_led run", control("0x4002", "0x0", "")},
                  {"-set_stat_led shutdown", control("0x4003", "0x0", "")},
                  {"-set_stat_led nodisk", control("0x4004", "0x0", "")},
                  {"-set_stat_led usbcopy_on", "", 1, "Excution Error\n"},
                  {"-set_led usbcopy_blinking", control("0x5102", "0x80", "")},
                  {"-set_led usbcopy_on", control("0x5100", "0x80", "")},
                  {"-set_led usbcopy_off", control("0x5101", "0x80", "")},
                  {"-set_led memtest_blinking", control("0x5903", "0x80", "\\x02")},
                  {"-set_led memtest_on", control("0x5903", "0x80", "\\x01")},
                  {"-set_led memtest_off", control("0x5903", "0x80", "")},
                  {"-set_led power_green_on", control("0x5902", "0x80", "\\x01")},
                  {"-set_led power_green_off", control("0x5902", "0x80", "")},
                  {"-set_led power_orange_on", control("0x5901", "0x80", "\\x01")},
                  {"-set_led power_orange_off", control("0x5901", "0x80", "")},
                  {"-set_led run", "", 1, "Excution Error\n"},
              });
}

TEST(Norvhwctrl, SecondUartTakesTextAndRefusesWhatHasNone)
{
    Sandbox box;
    box.file(kDefaults, "supportuart2=\"yes\"\n");
    cases_run(box, "norvhwctrl",
              {
                  {"-set_stat_led run", "board 0xc0014b21 micro_write \"4\"\n"},
                  {"-set_led usbcopy_on", "board 0xc0014b21 micro_write \"B\"\n"},
                  {"-set_led usbcopy_off", "board 0xc0014b21 micro_write \"@\"\n"},
              });
    const auto fails = [&](const char *command, const char *log) {
        const Result result = box.run(words(command, "norvhwctrl"));
        EXPECT_EQ(result.exit_status, 1);
        EXPECT_EQ(result.record.count(log), 1) << result.record.text();
    };
    fails("-set_stat_led nodisk", "log err invalid microp command 16388");
    box.board_scenario("fail micro_write EIO");
    fails("-set_stat_led run", "log err write to uart2 error, error=(5)Input/output error");
    box.board_remove();
    fails("-set_stat_led run", "log err open norvbios error, error=(2)No such file or directory");
}

TEST(NorvMicropControl, EachFormSendsItsText)
{
    Sandbox box;
    box.file(kDefaults, "supportraid=yes\n");
    const auto sent = [](const std::string &text) { return "board 0xc0014b21 micro_write \"" + text + "\"\n"; };
    constexpr char kRole[] = "norv_microp_control", kNotFound[] = "Command Not Found\nCommand failed\n";
    cases_run(box, kRole,
              {
                  {"-w 0x33", sent("3")},
                  {"-w 0x00", sent("")},
                  {"FAN_SPEED_PWM_ADJUST_DUTY_CYCLE_IN_PERCENTAGE 40", sent("V40")},
                  {"USB_LED_ON", sent("@")},
                  {"USB_LED_OFF", sent("B")},
                  {"ALERT_LED_BLINKING", sent("LA2")},
                  {"ENALBE_WAKE_ON_LAN_FUNCTION", sent("l")},
                  {"BUZZER_OUT_LONG_AND_LOUD", sent("3")}, // what stands behind a name is ignored
                  {"MICROP_LOG_ON", "board 0xc0014b31 micro_log 1\n"},
                  {"MICROP_LOG_OFF", "board 0xc0014b31 micro_log 0\n"},
                  {"-w", "", 255, kNotFound},
                  {"FAN_SPEED_PWM_ADJUST_NOTHING 40", "", 255, kNotFound},
                  {"MICROP_VERSION_REPORT 1", "", 255, kNotFound}, // stands alone
              });
    for (const char *bad : {"", "a b c", "FAN_SPEED_PWM_ADJUST_FREQUENCY_IN_HZ 5"}) {
        const Result result = box.run(words(bad, kRole));
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_EQ(result.out.find("Copyright (c) 2003-2021 Norvessa, Inc. All rights reserved.\nUsage: "), 0U);
        EXPECT_EQ(result.record.text("board *"), "");
    }
    box.board_remove();
    const Result without = box.run({kRole, "USB_LED_ON"});
    EXPECT_EQ(without.exit_status, 255);
    EXPECT_EQ(without.out, "");
}

TEST(NorvMicropControl, VersionIsFoundInTheReply)
{
    static constexpr struct {
        const char *scenario;
        int exit_status;
        const char *out;
    } kReplies[] = {
        {"micro_reply O V12V12f", 0, "V12\n"}, // told twice: the last one counts
        {"micro_reply O 1aB23Cf", 0, "B23C\n"},
        {"micro_reply O 12345fV", 253, "Get Microp Version Failed\nCommand failed\n"},
        {"fail micro_ask EIO", 254,
         "Failed to set and get microp version\nPlease check if the microP version function is on.\nCommand failed\n"},
        {"micro_reply O V12\nfail micro_write EIO", 0, "V12\nFailed to close microp version function\n"},
    };
    for (const auto &reply : kReplies) {
        Sandbox box;
        box.file(kDefaults, "supportraid=yes\n");
        box.board_scenario(reply.scenario);
        const Result result = box.run({"norv_microp_control", "MICROP_VERSION_REPORT"});
        EXPECT_EQ(result.exit_status, reply.exit_status) << reply.scenario;
        EXPECT_EQ(result.out, reply.out) << reply.scenario;
    }
}

TEST(NorvLedMaskOn, DarkensEachDiskThenMasks)
{
    static constexpr struct {
        const char *version, *scenario;
        bool masks;
        int failures;
    } kCases[] = {
        {"NS-LED1-j2\n", "", false, 0},
        {"NS-LED1\n", "", false, 0},
        {"NS-LED12-j\n", "", true, 0},
        {"", "fail disk_led EIO\nfail disk_led_mask EIO", true, 3},
    };
    for (const auto &row : kCases) {
        Sandbox box;
        box.file(kDefaults, "supportraid=yes\nmaxdisks=2\n");
        box.file("/proc/sys/kernel/norv_hw_version", row.version);
        box.board_scenario(row.scenario);
        const Record record = box.run({"norv_led_mask_on"}).record;
        EXPECT_TRUE(record.in_order({"board 0xc0184b0a disk_led 1 0 14 \"internal_slot\"*",
                                     "board 0xc0184b0a disk_led 2 0 14 \"internal_slot\"*"}));
        EXPECT_EQ(record.count("board 0xc0044b25 disk_led_mask 1*"), row.masks ? 1 : 0) << row.version;
        EXPECT_EQ(record.count("log err *failed to set disk *, led as 0") +
                      record.count("log err *Failed to ioctl Disk led Mask, errno=5, Input/output error"),
                  row.failures);
    }
    Sandbox box;
    box.file(kDefaults, "supportraid=yes\nmaxdisks=2\n");
    box.board_remove();
    const Result without = box.run({"norv_led_mask_on"});
    EXPECT_EQ(without.exit_status, 0);
    EXPECT_EQ(without.record.count("log err *open sybios fail"), 1);
}

TEST(NorvOob, WithoutAControllerItSaysSo)
{
    Sandbox box;
    box.file(kDefaults, "supportraid=yes\n");
    box.directory("/var/lock");
    for (const char *role : {"norv_oob_power_action", "norv_oob_ipv4_get"}) {
        const Result result = box.run({role}, {.leaves = {"/var/lock/oob_ioctl.lock"}});
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_EQ(result.err,
                  std::string(role) + ": the out-of-band controller does not answer: No such file or directory\n");
    }
}

TEST(NorvOob, AsksTheController)
{
    using namespace std::string_literals;
    const struct {
        std::string args;
        std::string reply; // completion code and data
        const char *command;
        int exit_status;
        const char *out;
    } kQuestions[] = {
        {"norv_oob_power_action", "\0\0"s, "3070", 0, "none\n"},
        {"norv_oob_power_action", "\0\2"s, "3070", 0, "reboot\n"},
        {"norv_oob_power_action", "\0\3"s, "3070", 0, "poweroff\n"},
        {"norv_oob_power_action", "\xc1\1"s, "3070", 255, ""},
        {"norv_oob_power_action --clear", "\0"s, "3071", 0, ""},
        {"norv_oob_ipv4_get", "\0\x11\x0a\1\2\xff"s, "0c02", 0, "10.1.2.255\n"},
    };
    for (const auto &row : kQuestions) {
        Sandbox box;
        box.file(kDefaults, "supportraid=yes\n");
        controller_add(box, {row.reply});
        const Result result = box.run(words(row.args));
        EXPECT_EQ(result.exit_status, row.exit_status) << row.out;
        EXPECT_EQ(result.out, row.out);
        EXPECT_EQ(result.record.count("ioctl /dev/ipmi0 * "s + row.command), 1) << result.record.text();
    }
}

TEST(NorvPstoreCollect, CopiesThenRemovesAndKeepsABoundedNumber)
{
    Sandbox box;
    box.file(kDefaults, "supportraid=yes\n");
    box.directory("/var/log");
    EXPECT_EQ(box.run({"norv_pstore_collect"}).exit_status, 0); // nothing there
    EXPECT_FALSE(box.exists("/var/log/pstore"));

    for (int old = 10; old < 30; old++)
        box.file("/var/log/pstore/19990101-0000" + std::to_string(old) + "-00/dmesg", "old");
    box.file("/sys/fs/pstore/dmesg-ramoops-0", "Oops: 1");
    box.file("/sys/fs/pstore/console-ramoops-0", std::string(200000, 'x'));
    const Result result = box.run({"norv_pstore_collect"}, {.leaves = {"/var/log/pstore/*"}});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(box.list("/sys/fs/pstore").size(), 0U);
    const std::vector<std::string> kept = box.list("/var/log/pstore");
    ASSERT_EQ(kept.size(), 16U);
    EXPECT_EQ(box.list("/var/log/pstore/" + kept.back()).size(), 2U);
    EXPECT_EQ(box.read_file("/var/log/pstore/" + kept.back() + "/dmesg-ramoops-0"), "Oops: 1");
}

TEST(NorvPstoreCollect, NeverGivesUpAGoodCollectionForABadOne)
{
    Sandbox box;
    box.file(kDefaults, "supportraid=yes\n");
    for (int old = 10; old < 26; old++)
        box.file("/var/log/pstore/20990101-0000" + std::to_string(old) + "-00/dmesg",
                 "from before the clock went back");
    box.symlink("/sys/fs/pstore/unreadable", "/nowhere");
    const RunOptions options = {.leaves = {"/var/log/pstore/*"}};
    EXPECT_EQ(box.run({"norv_pstore_collect"}, options).exit_status, 255);
    EXPECT_EQ(box.list("/var/log/pstore").size(), 16U);

    box.remove("/sys/fs/pstore/unreadable");
    box.file("/sys/fs/pstore/dmesg", "Oops: 2");
    EXPECT_EQ(box.run({"norv_pstore_collect"}, options).exit_status, 0);
    const std::vector<std::string> kept = box.list("/var/log/pstore");
    EXPECT_EQ(kept.size(), 16U);
    EXPECT_EQ(box.read_file("/var/log/pstore/" + kept.front() + "/dmesg"), "Oops: 2");
}

} // namespace

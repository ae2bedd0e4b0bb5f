// The factory tool: what it keeps in the unit's record, and what it asks of the board.
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <net/if.h>
#include <scsi/sg.h>
#include <string>

#include "product.h"
#include "tests/support/box_links.h"
#include "tests/support/box_station.h"
#include "tests/support/rows.h"
#include "tests/support/udpd_datagram.h"

namespace
{

constexpr char kDefaults[] = "/etc.defaults/norvinfo.conf", kFailed[] = "Excution Error";

// A unit with a board and a boot partition.
struct Unit : Sandbox {
    Unit()
    {
        file(kDefaults, "supportraid=no\n");
        file("/proc/sys/kernel/norv_vender_format_version", "3\n");
        file("/proc/sys/kernel/norv_install_flag", "0");
        program("/bin/mkdir");
        directory("/tmp/bootmnt");
        board_scenario("");
        leaves({"/tmp/bootmnt*", "/.box/volumes/*", "semaphore *"});
    }
    Result tool(const std::vector<std::string> &command)
    {
        Result result = run(command);
        EXPECT_EQ(result.exit_status, 0);
        return result;
    }
    Result tool(const std::string &command) { return tool(words(command, "mantool")); }
    std::string out(const std::string &command) { return tool(command).out; }
};

TEST(Mantool, RecordOfTheUnit)
{
    Unit box;
    // A command, and what it prints begins with this.
    const std::pair<std::string, std::string> kRows[] = {
        {"-vender_version_get", "Vender version:3\n"},
        {"-sn_get", "Failed to get serial number."},
        {"-sn_set A8ODN02468", ""},
        {"-sn_set TOOSHORT", "Length of SN is changed."},
        {"-sn_set 'has blank1'", "Failed to set serial number."},
        {"-sn_get", "SN:A8ODN02468\n"},
        {"-mac_set 0200000A0B0C", ""},
        {"-mac_set 2 0200000A0b0D", ""},
        {"-mac_set 17 0200000A0B0D", "Failed to set Mac Address."},
        {"-mac_get 2", "MAC:02:00:00:0A:0B:0D\n"},
        {"-mac_get 3", "Failed to get Mac Address."},
        {"-custom_sn_set " + std::string(31, 'c'), ""},
        {"-test_flag_get pt_mem_cnt", "4294967295\n"},
        {"-test_flag_set PTF_BEGIN 1", ""}, // clears a record never set
        {"-test_flag_get pt_mem_cnt", "0\n"},
        {"-test_flag_set pt_dma_cnt 12", ""},
        {"-test_flag_get PTB_TESTED", "Pass\n"},
        {"-test_flag_set FTF_USB 3", ""},
        {"-test_flag_get FTF_TESTED", "NotTest\n"},
        {"-test_flag_set ft_func_error xx1x1x0", ""},
        {"-test_flag_get FTF_USB", "Pass\n"},
        {"-test_flag_init", ""}, // nothing to do
        {"-test_flag_get pt_dma_cnt", "12\n"},
        {"-test_flag_set pt_dma_cnt 010", ""},        // decimal
        {"-test_flag_set pt_dma_cnt 4294967296", ""}, // no such number
        {"-test_flag_get pt_dma_cnt", "10\n"},
        {"-test_flag_set pt_mem_cnt -1", ""}, // as never set
        {"-test_flag_set PTF_COMPLETE 0", ""},
        {"-test_flag_set PTF_BEGIN 3", ""},
        {"-test_flag_get PTF_BEGIN", "Pass\n"},
        {"-test_flag_get pt_dma_cnt", "10\n"},
        {"-test_flag_init", ""},
        {"-test_flag_get pt_dma_cnt", "0\n"},
        {"-test_flag_get FTF_RAM", "Excution Error\n"},
        {"-test_flag_set ft_burnin_cnt 7", ""},
        {"-test_flag_reset", ""},
        {"-test_flag_get ft_burnin_cnt", "0\n"},
        {"-mac_get", "MAC:02:00:00:0A:0B:0C\n"}, // stays
    };
    for (const auto &[command, begin] : kRows) {
        const std::string out = box.out(command);
        EXPECT_EQ(out.substr(0, begin.size()), begin) << command;
        EXPECT_TRUE(!begin.empty() || out.empty()) << command << out;
    }
}

// The report's lines for flags, "NAME" or "NAME=RESULT" between blanks.
std::string flag_lines(const std::string &flags)
{
    std::string lines;
    for (const std::string &word : words(flags)) {
        const size_t sign = word.find('=');
        std::string name = word.substr(0, sign);
        name.resize(24, ' ');
        lines += "\n\t\t" + name + ": " + (sign == word.npos ? "NotTest" : word.substr(sign + 1));
    }
    return lines;
}

// The first two groups' flags are told once the group was begun, the last two's always.
TEST(Mantool, ReportOfTheTests)
{
    const std::string others = " FTF_ESATA FTF_RTC FTF_FAN FTF_LED FTF_BUTTON FTF_FILE_COPY FTF_REBOOT "
                               "FTF_SERIAL_NUMBER FTF_NETWORK_SPEED FTF_MAC_ADDRESS FTF_REDUNDANT_POWER FTF_ESATA2 "
                               "FTF_HDD_SEQ FTF_CPU_NAME FTF_MEMORY_SIZE FTF_FUSE FTF_TRANSCODING "
                               "FTF_SAS_CONTROLLER_PHY FTF_SATA_SPEED FTF_TEN_GIGA_NIC FTF_GROUP_UPDATE";
    Unit box;
    EXPECT_EQ(box.out("-test_flag_list")
                  .find("ProComm Test: False\n\nPre Burn-in Test: False\n\nFinal Functional Test: "
                        "False\n\t\tFTF_TESTED              : NotTest\n"),
              0U);
    for (const std::string set : {"PTF_BEGIN 1", "pt_mem_cnt 3", "pt_dma_cnt 4", "PTB_MEMORY_TEST 2", "FTF_USB 1",
                                  "FTB_SATA 2", "ft_burnin_cnt 4294967295"})
        EXPECT_EQ(box.out("-test_flag_set " + set), "");
    EXPECT_EQ(
        box.out("-test_flag_list"),
        "ProComm Test: True" + flag_lines("PTF_BEGIN=Pass PTF_COMPLETE") +
            "\n\nPre Burn-in Test: True\n\tMemory Test Counter: 3" + flag_lines("PTB_MEMORY_TEST=Fail") +
            "\n\tDMA Test Counter: 4" +
            flag_lines("PTB_TESTED=Pass PTB_FILE_CHECKSUM PTB_NETWORK_CRC PTB_AV_STRESS PTB_FILE_COPY "
                       "PTB_CHECK_ITEM") +
            "\n\nFinal Functional Test: True" +
            flag_lines("FTF_TESTED=Pass FTF_TEST_COMPLETE FTF_MODEL FTF_VERSION FTF_USB=Pass" + others) +
            "\n\nFinal Burn-in Test: True\n\tBurnin Test Counter: 4294967295" +
            flag_lines("FTB_TESTED=Pass FTB_FILE_COPY FTB_FILE_CHECKSUM FTB_SATA=Fail FTB_NETWORK_CRC FTB_ATA_DRDY "
                       "FTB_CHECK_ITEM") +
            "\n");
    const std::string help = box.out("-test_flag_help"); // a text of its own, behind the table
    EXPECT_NE(help.find("\tFTB_SATA_ERROR\n"), help.npos);
    EXPECT_EQ(help.find("FTF_GROUP_UPDATE"), help.npos);
}

// A record with any byte changed is not taken for a good one, and a question changes nothing.
TEST(Mantool, DamagedRecordIsRefused)
{
    Unit box;
    box.out("-sn_set A8ODN02468");
    const std::string volume = box.volume("/dev/norvboot2");
    const std::string path = volume + "/vender", good = box.read_file(path);
    for (const size_t at : {size_t{0}, size_t{17}, size_t{511}}) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 1);
        box.file(path, bad);
        EXPECT_NE(box.out("-sn_get").find("Fail to get vender all\n"), std::string::npos) << at;
        EXPECT_NE(box.out("-mac_set 0200000A0B0C").find(kFailed), std::string::npos);
        EXPECT_EQ(box.read_file(path), bad);
    }
    box.file(path, good.substr(0, 300));
    EXPECT_NE(box.out("-sn_get").find("Fail to get vender all\n"), std::string::npos);
    for (const std::string &erased : {std::string(), std::string(512, '\xff'), std::string(4096, '\0')}) {
        box.file(path, erased); // not damaged: never written
        EXPECT_EQ(box.out("-mac_set 0200000A0B0C"), "") << erased.size();
    }
    box.file("/proc/sys/kernel/norv_vender_format_version", "4\n"); // the record is of format 3
    EXPECT_EQ(box.out("-mac_set 0200000A0B0D").find("Vender version is changed.\n"), 0U);
}

// Each change reads and writes under one hold of the record's semaphore, whether or not it changes anything; what only
// reads holds it, too.
TEST(Mantool, ReadsAndWritesUnderOneSemaphore)
{
    constexpr char kSemaphore[] = "semget 0x6d746433 1 0666"; // the one that is there
    const std::pair<const char *, bool> kRows[] = {
        {"-test_flag_set FTF_USB 3", true}, {"-test_flag_init", true}, {"-test_flag_reset", true},
        {"-mac_set 0200000A0B0C", true},    {"-sn_get", false},        {"-test_flag_list", false},
    };
    Unit box;
    box.out("-test_flag_init"); // the first one makes the semaphore
    box.call({.call = "semget", .real = true});
    for (const auto &[command, writes] : kRows) {
        SCOPED_TRACE(command);
        const Result result = box.tool(command);
        std::string steps;
        for (const std::string &line : result.record.lines)
            if (line == kSemaphore)
                steps += 'S';
            else if (line.starts_with("mount ") || line.starts_with("umount2 "))
                steps += line[0] == 'm' ? '(' : ')';
        EXPECT_EQ(steps, writes ? "S()()S" : "S()S") << result.record.text();
    }
    box.call({.call = "semop", .error = EACCES});
    const Result refused = box.tool("-test_flag_reset");
    EXPECT_TRUE(
        refused.record.in_order({"log err vender_store.cpp:* semop fail semid * errno 13",
                                 "log err vender_store.cpp:* failed to call NORVManutilVenderSemaphoreEnter()"}));
    EXPECT_EQ(refused.record.count("mount *"), 0);
    EXPECT_EQ(refused.out, std::string(kFailed) + "\n");
}

// A write that fails is tried twice more; the record that was there stays.
TEST(Mantool, FailedWriteIsTriedAgain)
{
    const std::string repeats[] = {"Repeat[1] writing Vender\n", "Repeat[2] writing Vender\n"};
    const std::string expected[] = {repeats[0], repeats[0] + repeats[1],
                                    repeats[0] + repeats[1] +
                                        "Fail to set vender all\nFailed to set serial number.\nExcution Error\n"};
    Unit box;
    box.out("-sn_set A8ODN02468");
    for (const int failures : {1, 2, 3}) {
        box.call({.call = "rename", .error = EIO, .times = failures});
        EXPECT_EQ(box.out("-sn_set B8ODN0246" + std::to_string(failures)), expected[failures - 1]);
    }
    EXPECT_EQ(box.out("-sn_get"), "SN:B8ODN02462\n");
}

// What each command says, and what it asks of the board and of the network card.
TEST(Mantool, AsksTheBoard)
{
    constexpr unsigned long kEthtool = 0x8946; // linux/sockios.h
    const RequestRow kWakes[] = {{.bytes = std::string("\5\0\0\0\x20\0\0\0\x20\0\0\0", 12), .times = 1},
                                 {.times = 1},
                                 {.times = 1},
                                 {.error = EOPNOTSUPP}};
    const std::string failed = "Excution Error\n", read_1000 = "0xc0084b2c memory_read 0x1000 -> 0xdeadbeef\n",
                      cores = "0xc0104b22 cpu_temperature -> 2 61 -4 0\n",
                      both = "0xc1344b12 schedule_read -> 2 1 0x3e081e 0x7f0000\n",
                      alarms = "--------- Alarm time ---------\nEnabled=1\nHave [2] schedules, we print the first ";
    const struct {
        const char *command;
        std::string out;
        std::string board; // lines of its transcript
    } kRows[] = {
        {"-mw 0x10 0xfe", "0x10:0xfe\n",
         "0xc0024b15 cpld_byte_write 0x10 0xfe\n0xc0024b14 cpld_byte_read 0x10 -> 0xfe\n"},
        {"-md 16", "0x10:0xfe\n", "0xc0024b14 cpld_byte_read 0x10 -> 0xfe\n"},
        {"-gpio_write 10 1", "pin 10:1\n", "0xc0044bce gpio_write 10 1\n0xc0044bcd gpio_read 10 -> 1\n"},
        {"-gpio_read 0xa", "pin 10:1\n", "0xc0044bcd gpio_read 10 -> 1\n"},
        {"-mem_write 0x1000 0xdeadbeef", "0x00001000: 0xdeadbeef\n",
         "0xc0084b2b memory_write 0x1000 0xdeadbeef\n" + read_1000},
        {"-mem_read 4096", "0x00001000: 0xdeadbeef\n", read_1000},
        {"-uart2 w 2x", "0x32\n", "0xc0014b21 micro_write \"2\"\n"},
        {"-uart2 w 0x33", "0x33\n", "0xc0014b21 micro_write \"3\"\n"},
        {"-button_test enable", "", "0xc0044b80 manutil_mode 1\n"},
        {"-button_test disable", "", "0xc0044b80 manutil_mode 0\n"},
        {"-temperature", "-3C captured\n", "0xc0044b10 temperature -> -3\n"},
        {"-cpu_temp", "61C captured\n", cores},
        {"-cpu_temp 2", "-4C captured\n", cores},
        {"-cpu_temp 3", "No temperature of core 3, the board tells of 2\n" + failed, cores},
        {"-set_pwm V05", "", "0xc0014b21 micro_write \"V05\"\n"},
        {"-set_pwm W99", "", "0xc0014b21 micro_write \"W99\"\n"},
        {"-set_hddfaulty 1 onward", "", "0xc0184b0a disk_led 1 2 14 \"internal_slot\"\n"},
        {"-set_hddfaulty 2 off sys", "", "0xc0184b0a disk_led 2 1 12 \"system_slot\"\n"},
        {"-set_hddfaulty 1 off rear", "Bad Arguments.\n" + failed, ""},
        {"-led_mask_on", "", "0xc0044b25 disk_led_mask 1\n"},
        {"-auto_poweron_enable 0x3E081E 0x7f0000",
         alarms + "[2]\n[1]th alarm time:[0x3E081E]\n[2]th alarm time:[0x7F0000]\n",
         "0xc1344b13 schedule_write 2 1 0x3e081e 0x7f0000\n0xc0904b01 control 0x5700 0x0 \"\"\n" + both},
        {"-auto_poweron_get 1", alarms + "[1]\n[1]th alarm time:[0x3E081E]\n", both},
        {"-auto_poweron_enable 0x103C00", "Error input:[0x103C00]:hour cannot more than 24\n" + failed, ""},
        {"-auto_poweron_enable 0x801000", "Error input:[0x801000]:weekdays cannot more than 0x7F\n" + failed, ""},
        {"-auto_poweron_enable 0x1000000", "Error input:[0x1000000]\n" + failed, ""},
        {"-auto_poweron_enable 0x10173C", "Error input:[0x10173C]:min cannot more than 60\n" + failed, ""},
        {"-auto_poweron_disable",
         "--------- Alarm time ---------\nEnabled=0\nHave [0] schedules, we print the first [0]\n",
         "0xc1344b13 schedule_write 0 0\n0xc0904b01 control 0x5701 0x0 \"\"\n0xc1344b12 schedule_read -> 0 0\n"},
        // All three see to it that the model says that it can, also the one that only asks.
        {"-wol_get eth0", "eth0: Enable\n", "SIOCETHTOOL 050000000000000000000000\n"},
        {"-wol_get eth0", "eth0: Disable\n", "SIOCETHTOOL 050000000000000000000000\n"},
        {"-wol_enable eth0", "", "SIOCETHTOOL 060000000000000020000000\n"},
        {"-wol_disable eth0", "Failed to disable wake-on-lan of eth0.\n" + failed,
         "SIOCETHTOOL 060000000000000000000000 = EOPNOTSUPP\n"},
    };
    Unit box;
    for (RequestRow row : kWakes) {
        row.device = "socket:*";
        row.request = kEthtool;
        row.reads = 12;
        row.at = offsetof(ifreq, ifr_data);
        row.is_pointer = true;
        box.request(row);
    }
    box.host_file("/bin/cp", "/bin/cp");
    box.leaves({"/etc/power_sched.conf", "/tmp/power_sched.conf.tmp"});
    box.board_scenario("temperature -3\ncpu_temperature 61 -4\n");
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.command);
        const Result result = box.tool(row.command);
        EXPECT_EQ(result.out, row.out);
        std::string board;
        for (const std::string &line : lines(result.record.text("board *") + result.record.text("ioctl socket:*")))
            board += line.substr(line.starts_with("board ") ? 6 : line.find("SIOC")) + "\n";
        EXPECT_EQ(board, row.board);
    }
    EXPECT_EQ(box.read_file(kDefaults), "supportraid=no\nsupport_wol=\"yes\"\n");
    EXPECT_EQ(box.read_file("/etc/power_sched.conf"),
              "[Power On schedule]\n20842526\n25100288\n[Power Off schedule]\n");
    box.remove("/bin/cp");
    EXPECT_EQ(box.out("-auto_poweron_enable 0"), "Failed to set power on schedule\n" + failed);
    box.board_remove();
    EXPECT_EQ(box.out("-temperature"), "open /dev/norvbios error!\n" + failed);
}

TEST(Mantool, WrongArgumentsShowTheUsage)
{
    std::string too_many = "-auto_poweron_enable"; // an alarm more than the board has room for
    for (int i = 0; i < 101; i++)
        too_many += " 0x3E081E";
    Unit box;
    const std::string usage = box.out("-h");
    for (const std::string &command :
         lines(too_many + "\n-custom_sn_set " + std::string(32, 'c') +
               "\n-mw 0x10\n-mw 0x100 1\n-md -1\n-md 0x\n-md 1x\n-set_hddfaulty 0 on\n-set_hddfaulty 1 up\n"
               "-uart2 w 0x100\n-uart2 w ''\n-uart2 r 1\n-test_flag_help FTF_USB\n-mac_set 02:00:00:0A:0B:0C\n"
               "-mac_set 1 0200000A0B0\n-mem_read 0x100000000\n-button_test on\n-cpu_temp 0\n-fan_status_get 1\n"
               "-set_pwm V5\n-set_pwm X05\n-set_pwm W0x\n-log\n-usb3_dwng\n-wol_get\n-auto_poweron_get 0\n"
               "-auto_poweron_enable\n-rtc_set 2021/08/04"))
        EXPECT_EQ(box.out(command), usage + kFailed + "\n") << command;
}

TEST(Mantool, ModelLacksASensorOrTheFansControl)
{
    for (const ProductMissingCapability &missing : kProductMissingCapabilities) {
        SCOPED_TRACE(missing.unique);
        Unit box;
        box.file(kDefaults, std::string("unique=") + missing.unique + "\n");
        if (missing.capability == 4) {
            EXPECT_EQ(box.out("-cpu_temp"), "This model not support cpu temperature\nExcution Error\n");
        } else if (missing.capability == 7) {
            EXPECT_EQ(box.out("-set_pwm V05"), "This model not support the PWM control.\nExcution Error\n");
        }
        EXPECT_EQ(box.record().count("board *"), 0);
    }
}

// Where the fans' states come from, and what becomes of them: the controller's files, the board, the micro-controller.
TEST(Mantool, FanStates)
{
    constexpr char kModuleFailed[] = "Norvbios ioctl NORVIO_GET_MODULE_TYPE failed !!";
    constexpr char kOtherAnswer[] = "microp_fan_state: Get Microp return other than fan fail.";
    constexpr char kPlain[] = "supportraid=no\n";
    constexpr char kController[] = "supportraid=no\nsupportadt7490=\"yes\"\n";
    const std::string failed = std::string(kFailed) + "\n";
    const std::string path = "/tmp/ADTFanPath/fan";
    const struct {
        const char *conf, *scenario, *speed; // speed of the first fan that the controller tells; NULL: none
        std::string out;
        std::string log; // so many lines, and no other
        int lines;
        int sleeps;
    } kRows[] = {
        {kPlain, "fans 2\nfan 1 900\nfan 2 0\n", nullptr,
         "Total Fans: 2, Fan 1 Status: start\nTotal Fans: 2, Fan 2 Status: stop\n", "", 0, 0},
        {kPlain, "fans 1\nfail fan_count EIO\n", nullptr, "ioctl error with cmd NORVIO_GET_FAN_STATUS !\n" + failed, "",
         0, 0},
        {kPlain, "fans 1\nfail fan_status EIO\n", nullptr,
         "ioctl error with cmd NORVIO_GET_FAN_STATUS !\nTotal Fans: 1, Fan 1 status can't get\n" + failed, "", 0, 0},
        {kPlain, "fans 1\nfail module_type EIO\n", nullptr, "Total Fans: 1, Fan 1 status can't get\n" + failed,
         kModuleFailed, 1, 0},
        {kPlain, "fans 1\nmodule 6\n", nullptr, "Total Fans: 1, Fan 1 Status: start\n", kOtherAnswer, 5, 4},
        {kPlain, "fans 1\nmodule 6\nmicro_bytes 0x31 0x46 0x31\n", nullptr, "Total Fans: 1, Fan 1 Status: stop\n",
         kOtherAnswer, 1, 1},
        {kPlain, "fans 1\nmodule 6\nfail micro_read EIO\n", nullptr,
         "ioctl error with cmd NORVIO_MICROP_READ_BYTE !\nTotal Fans: 1, Fan 1 status can't get\n" + failed, "", 0, 0},
        {kController, "fans 1\nmodule 6\n", "1200\n", "Total Fans: 1, Fan 1 Status: start\n", "", 0, 0},
        {kController, "fans 1\n", "0\n", "Total Fans: 1, Fan 1 Status: stop\n", "", 0, 0},
        {kController, "fans 1\n", "",
         "Fail to read " + path + "1_input\nTotal Fans: 1, Fan 1 status can't get\n" + failed, "", 0, 0},
        {kController, "fans 1\n", nullptr,
         "Fail to open file:" + path + "1_input\nTotal Fans: 1, Fan 1 status can't get\n" + failed, "", 0, 0},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(std::string(row.conf) + row.scenario);
        Unit box;
        box.call({.call = "sleep"});
        box.file(kDefaults, row.conf);
        box.board_scenario(row.scenario);
        if (row.conf == kController) {
            box.file("/tmp/ADTFanPath/name", "adt7490\n");
            if (row.speed != nullptr)
                box.file(path + "1_input", row.speed);
        }
        const Result result = box.tool("-fan_status_get");
        EXPECT_EQ(result.out, row.out);
        EXPECT_EQ(result.record.count("log err mantool_fan.cpp:* " + row.log), row.lines) << result.record.text();
        EXPECT_EQ(result.log.size(), static_cast<size_t>(row.lines));
        EXPECT_EQ(result.record.count("sleep 1"), row.sleeps);
        const bool has_checker = result.record.count("board * micro_read *") > 0;
        EXPECT_EQ(result.record.text("board * micro_write *"),
                  has_checker ? "board 0xc0014b21 micro_write \"u\"\nboard 0xc0014b21 micro_write \"t\"\n" : "");
    }
}

// What a line to the log server takes along.
struct LoggingUnit : Unit {
    BoxLinks links{*this};
    LoggingUnit()
    {
        EXPECT_TRUE(links.live_wire("eth0", "peer0"));
        file("/proc/sys/kernel/norv_serial", "1234567890123\n");
        file("/proc/sys/kernel/norv_mac_address1", "0200000a0b0c\n");
        file("/etc/norvmanlog.conf", "label=line 4\n");
        file(kDefaults, "unique=\"norv_x86_ds_1234567890123456789\"\n");
        file("/tmp/norvmanlogcounter", "counter=41\n");
        file("/tmp/norvmanlogsession", "session=000000077\n");
        leaves({"/tmp/norvmanlog*"});
    }
};

TEST(Mantool, LogLineOnTheWire)
{
    const std::string head = "16SN=1234567890123"
                             "10MAC=0A0B0C"
                             "12LABEL=line 4"
                             "10COUNTER=41"
                             "17SESSION=000000077"
                             "25MODEL=ds_1234567890123456";
    const std::string longest(1024 - 5 - head.size() - 4, 'x'), log = "log err mantool_log.cpp:* ";
    LoggingUnit box;
    const BoxStation station(box, "peer0");
    const Result refused = box.tool({"mantool", "-log", longest + "x"});
    EXPECT_EQ(refused.out, std::string(kFailed) + "\n");
    EXPECT_EQ(refused.record.count(log + "The log length is " + std::to_string(longest.size() + 1) +
                                   ", exceeds the max length " + std::to_string(longest.size()) +
                                   ", the log won't be sent"),
              1);
    box.file("/tmp/norvmanlogcounter", "counter=41\n");
    const Result sent = box.tool({"mantool", "-log", longest});
    const std::string record = std::to_string(longest.size() + 4) + "LOG=" + longest;
    const UdpdDatagram datagram{.event = 1, .payload = head + record + '\0', .id = 0, .name = "norvmanl"};
    const UdpFrame frame{.source_mac = box_mac(box, "eth0"),
                         .source_ip = "\x78\x56\x34\x12",
                         .source_port = 9999,
                         .destination_port = 1123,
                         .payload = datagram.bytes()};
    EXPECT_EQ(testing::PrintToString(station.receive(60)), testing::PrintToString(frame.bytes()));
    EXPECT_EQ(sent.record.count(log + "Final string size = " + std::to_string(head.size() + record.size()) +
                                ", string = \"16SN=*" + longest + "\"*"),
              1);
    EXPECT_EQ(box.read_file("/tmp/norvmanlogcounter"), "counter=42\n"); // the next one's
}

TEST(Mantool, LogLineWithoutItsValues)
{
    const std::pair<Change, const char *> kRows[] = {
        // What is changed, and the one line that is logged: why nothing is sent, or what is.
        {gone("/etc/norvmanlog.conf"), "Get label from /etc/norvmanlog.conf fail"},
        {file("/etc/norvmanlog.conf", "label=\"\"\n"), "Get label from /etc/norvmanlog.conf fail"},
        {file(kDefaults, "unique=norv\n"), "Get first '_' error , unique name's format is invalid"},
        {file(kDefaults, "unique=a_b\n"), "Get second '_' error , unique name's format is invalid"},
        {file(kDefaults, "unique=a_b_c\n"), "Final string*7MODEL=c*"},
        {gone("/proc/sys/kernel/norv_mac_address1"), "Final string*10MAC=0D0E0F*"}, // the record's
        {gone("/tmp/norvmanlogcounter"), "Final string*9COUNTER=0*"},
        {gone("/tmp/norvmanlogsession"), "Final string*17SESSION=*"},
    };
    for (const auto &[change, told] : kRows) {
        LoggingUnit box;
        box.tool("-mac_set 0200000D0E0F");
        change(box);
        const Result result = box.tool("-log x");
        EXPECT_EQ(result.record.count("log err mantool_log.cpp:* *"), 1) << result.record.text();
        EXPECT_EQ(result.record.count(std::string("log err mantool_log.cpp:* ") + told), 1) << told;
        const std::string session = text_of(box, "/tmp/norvmanlogsession");
        EXPECT_EQ(session.size(), strlen("session=000000077\n")) << told;
        EXPECT_TRUE(told[0] == 'G' || result.log_text().find("17SESSION=" + session.substr(8, 9)) != session.npos);
    }
}

TEST(Mantool, FlashDeviceIsSlowedDown)
{
    constexpr size_t kCommandAt = offsetof(sg_io_hdr, cmdp), kStatusAt = offsetof(sg_io_hdr, status);
    Unit box;
    box.device("/dev/sdq", 1 << 20);
    box.request({.device = "/dev/sdq", .request = SG_IO, .reads = 9, .times = 1});
    box.request(
        {.device = "/dev/sdq", .request = SG_IO, .reads = 12, .at = kCommandAt, .is_pointer = true, .times = 1});
    box.request({.device = "/dev/sdq", .request = SG_IO, .reads = 4, .at = offsetof(sg_io_hdr, timeout), .times = 1});
    box.request({.device = "/dev/sdq", .request = SG_IO, .error = EIO, .times = 1});
    box.request({.device = "/dev/sdq", .request = SG_IO, .bytes = "\x02", .at = kStatusAt, .times = 1});
    const std::string failed = std::string(kFailed) + "\n";
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(box.out("-usb3_dwng /dev/sdq"), "");
    EXPECT_EQ(box.out("-usb3_dwng /dev/sdq"), "Send command error: 5\n" + failed);
    EXPECT_EQ(box.out("-usb3_dwng /dev/sdq"), "Send command error: 2\n" + failed);
    EXPECT_EQ(box.out("-usb3_dwng /dev/sdz"), "Cannot open /dev/sdz\n" + failed);
    EXPECT_EQ(box.record().text("ioctl /dev/sdq *"),
              "ioctl /dev/sdq SG_IO 53000000ffffffff0c\n" // 'S', no data, a command of twelve bytes
              "ioctl /dev/sdq SG_IO 06cd00000000000000000000\n"
              "ioctl /dev/sdq SG_IO e8030000\n" // a second
              "ioctl /dev/sdq SG_IO = EIO\nioctl /dev/sdq SG_IO\n");
}

} // namespace

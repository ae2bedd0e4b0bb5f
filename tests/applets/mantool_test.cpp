// The factory tool: what it keeps in the unit's record, and what it asks of the board.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace
{

constexpr char kFailed[] = "Excution Error";

// A unit with a board and a boot partition.
struct Unit : Sandbox {
    Unit()
    {
        file("/etc.defaults/norvinfo.conf", "supportraid=no\n");
        file("/proc/sys/kernel/norv_vender_format_version", "3\n");
        file("/proc/sys/kernel/norv_install_flag", "0");
        program("/bin/mkdir");
        directory("/tmp/bootmnt");
        board_scenario("");
        leaves({"/tmp/bootmnt*", "/.box/volumes/*", "semaphore *"});
    }
    Result tool(std::vector<std::string> words)
    {
        words.insert(words.begin(), "mantool");
        Result result = run(words);
        EXPECT_EQ(result.exit_status, 0);
        return result;
    }
    std::string out(const std::vector<std::string> &words) { return tool(words).out; }
};

TEST(Mantool, RecordOfTheUnit)
{
    Unit box;
    const struct {
        std::vector<std::string> words;
        std::string out; // that it begins with
    } kRows[] = {
        {{"-vender_version_get"}, "Vender version:3\n"},
        {{"-sn_get"}, "Failed to get serial number."},
        {{"-mac_get"}, "Failed to get Mac Address."},
        {{"-sn_set", "A8ODN02468"}, ""},
        {{"-sn_get"}, "SN:A8ODN02468\n"},
        {{"-sn_set", "B8ODN02469"}, ""},
        {{"-sn_set", "TOOSHORT"}, "Length of SN is changed."},
        {{"-sn_set", "has blank1"}, "Failed to set serial number."},
        {{"-sn_get"}, "SN:B8ODN02469\n"},
        {{"-mac_set", "0200000A0B0C"}, ""},
        {{"-mac_set", "2", "0200000A0b0D"}, ""},
        {{"-mac_set", "17", "0200000A0B0D"}, "Failed to set Mac Address."},
        {{"-mac_get"}, "MAC:02:00:00:0A:0B:0C\n"},
        {{"-mac_get", "2"}, "MAC:02:00:00:0A:0B:0D\n"},
        {{"-mac_get", "3"}, "Failed to get Mac Address."},
        {{"-custom_sn_set", std::string(31, 'c')}, ""},
        {{"-test_flag_get", "pt_mem_cnt"}, "4294967295\n"},
        {{"-test_flag_set", "PTF_BEGIN", "1"}, ""}, // clears a record never set
        {{"-test_flag_get", "pt_mem_cnt"}, "0\n"},
        {{"-test_flag_set", "pt_dma_cnt", "12"}, ""},
        {{"-test_flag_get", "PTB_TESTED"}, "Pass\n"},
        {{"-test_flag_set", "FTF_USB", "3"}, ""},
        {{"-test_flag_get", "FTF_TESTED"}, "NotTest\n"},
        {{"-test_flag_set", "FTF_USB", "2"}, ""},
        {{"-test_flag_get", "FTF_USB"}, "Fail\n"},
        {{"-test_flag_set", "ft_func_error", "xx1x1x0"}, ""},
        {{"-test_flag_get", "FTF_USB"}, "Pass\n"},
        {{"-test_flag_init"}, ""}, // nothing to do
        {{"-test_flag_get", "pt_dma_cnt"}, "12\n"},
        {{"-test_flag_list"},
         "ProComm Test: True\n\t\tPTF_BEGIN               : Pass\n\t\tPTF_COMPLETE            : NotTest"
         "\n\nPre Burn-in Test: True\n\tMemory Test Counter: 0\n"},
        {{"-test_flag_reset"}, ""},
        {{"-test_flag_get", "pt_dma_cnt"}, "0\n"},
        {{"-mac_get"}, "MAC:02:00:00:0A:0B:0C\n"}, // stays
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.words[0] + (row.words.size() > 1 ? " " + row.words[1] : ""));
        const std::string out = box.out(row.words);
        EXPECT_EQ(out.substr(0, row.out.size()), row.out);
        EXPECT_TRUE(!row.out.empty() || out.empty()) << out;
    }
}

// A record with any byte changed is not taken for a good one, and a question changes nothing.
TEST(Mantool, DamagedRecordIsRefused)
{
    Unit box;
    box.out({"-sn_set", "A8ODN02468"});
    const std::string volume = box.volume("/dev/norvboot2");
    const std::string path = volume + "/vender", good = box.read_file(path);
    EXPECT_EQ(good.size(), 512U);
    for (const size_t at : {size_t{0}, size_t{9}, size_t{17}, size_t{160}, size_t{511}}) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 1);
        box.file(path, bad);
        EXPECT_NE(box.out({"-sn_get"}).find("Fail to get vender all\n"), std::string::npos) << at;
        EXPECT_NE(box.out({"-mac_set", "0200000A0B0C"}).find(kFailed), std::string::npos);
        EXPECT_EQ(box.read_file(path), bad);
    }
    box.file(path, good.substr(0, 300));
    EXPECT_NE(box.out({"-sn_get"}).find("Fail to get vender all\n"), std::string::npos);
    box.file(path, good);
    EXPECT_EQ(box.out({"-sn_get"}), "SN:A8ODN02468\n");
}

TEST(Mantool, AsksTheBoard)
{
    Unit box;
    const struct {
        std::vector<std::string> words;
        std::string out; // that it begins with
    } kRows[] = {
        {{"-mw", "0x10", "0xfe"}, "0x10:0xfe\n"},
        {{"-md", "16"}, "0x10:0xfe\n"},
        {{"-gpio_write", "10", "1"}, "pin 10:1\n"},
        {{"-gpio_read", "0xa"}, "pin 10:1\n"},
        {{"-mem_write", "0x1000", "0xdeadbeef"}, "0x00001000: 0xdeadbeef\n"},
        {{"-mem_read", "4096"}, "0x00001000: 0xdeadbeef\n"},
        {{"-button_test", "enable"}, ""},
        {{"-set_hddfaulty", "1", "onward"}, ""},
        {{"-set_hddfaulty", "1", "off", "rear"}, "Bad Arguments."},
        {{"-auto_poweron_enable", "0x103C00"}, "Error input:[0x103C00]:hour cannot more than 24\n"},
        {{"-auto_poweron_enable", "0x801000"}, "Error input:[0x801000]:weekdays cannot more than 0x7F\n"},
        {{"-auto_poweron_enable", "0x1000000"}, "Error input:[0x1000000]\n"},
        {{"-auto_poweron_enable", "0x10173C"}, "Error input:[0x10173C]:min cannot more than 60\n"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.words[0] + " " + row.words[1]);
        const std::string out = box.out(row.words);
        EXPECT_EQ(out.substr(0, row.out.size()), row.out);
        EXPECT_TRUE(!row.out.empty() || out.empty()) << out;
    }
    for (const std::vector<std::string> &words : {std::vector<std::string>{"-mw", "0x10"},
                                                  {"-mw", "0x100", "1"},
                                                  {"-md", "-1"},
                                                  {"-md", "0x"},
                                                  {"-md", "1x"},
                                                  {"-button_test", "on"},
                                                  {"-uart2", "r", "1"},
                                                  {"-auto_poweron_get", "0"},
                                                  {"-rtc_set", "2021/08/04"}}) {
        const std::string out = box.out(words);
        EXPECT_NE(out.find("\nmantool -mw "), std::string::npos) << words[0];
        EXPECT_NE(out.find(kFailed), std::string::npos) << words[0];
    }
    box.board_remove();
    EXPECT_TRUE(box.out({"-temperature"}).starts_with("open /dev/norvbios error!\n"));
}

} // namespace

// The simulated board, through the door that its carriers use. Records are bytes written by hand.
#include "platform/board/board.h"

#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/board/board_internal.h"
#include "platform/board/check.h"
#include "tests/platform/bytes.h"

namespace
{

// A program's memory: pieces at made-up addresses. What lies outside them is no memory.
struct Memory {
    std::map<uint64_t, Bytes> pieces;

    uint8_t *at(uint64_t address, size_t bytes)
    {
        auto piece = pieces.upper_bound(address);
        if (piece == pieces.begin())
            return nullptr;
        --piece;
        const uint64_t offset = address - piece->first;
        return offset + bytes <= piece->second.size() ? piece->second.data() + offset : nullptr;
    }
    static int in(void *context, void *to, uint64_t from, size_t bytes)
    {
        const uint8_t *place = static_cast<Memory *>(context)->at(from, bytes);
        return place == nullptr ? -EFAULT : (memcpy(to, place, bytes), 0);
    }
    static int out(void *context, uint64_t to, const void *from, size_t bytes)
    {
        uint8_t *place = static_cast<Memory *>(context)->at(to, bytes);
        return place == nullptr ? -EFAULT : (memcpy(place, from, bytes), 0);
    }
};

constexpr uint64_t kRecord = 0x10000, kName = 0x20000;

class Board : public testing::Test
{
  protected:
    Board() { board_init(state.get(), now_s); }

    void scenario(std::string_view text)
    {
        char error[100];
        ASSERT_EQ(board_scenario_load(state.get(), now_s, text.data(), text.size(), error, sizeof error), 0) << error;
    }
    long ask(uint32_t request, Bytes record = {}) // the record is as long as the program's memory
    {
        memory.pieces[kRecord] = std::move(record);
        const board_memory access = {Memory::in, Memory::out, &memory};
        return board_ioctl(state.get(), now_s, request, kRecord, &access);
    }
    const Bytes &record() { return memory.pieces[kRecord]; }
    std::string transcript()
    {
        std::string text;
        char line[BOARD_NOTE_ROOM];
        while (board_transcript_next(state.get(), &cursor, line, sizeof line) == 1)
            text += std::string(line) + "\n";
        return text;
    }
    std::string drawing()
    {
        char text[4096];
        return {text, board_draw(state.get(), now_s, text, sizeof text)};
    }

    std::unique_ptr<struct board> state = std::make_unique<struct board>();
    Memory memory;
    uint64_t cursor = 0;
    int64_t now_s = 1000;
};

// Each record is exactly as long as the request copies: a byte more would be a fault of the memory.
TEST_F(Board, Records)
{
    const std::string zeros300(600, '0');
    const std::string groups = "01000000" + std::string(128, '0').replace(4, 2, "01").replace(126, 2, "01") +
                               "53415441" + std::string(56, '0') + std::string(192, '0');
    static constexpr char kState[] = "clock 2024-02-29 23:59:58\n"
                                     "temperature -3\ncpu_temperature 61 62\nfan 2 0\nfan 1 900\nmodule 6 7\n"
                                     "cpld 0x11 0x22\ncpld_byte 0x10 0xa5\n"
                                     "status 0 1\nevent 0x223\nmicro_bytes 0x30 0x61\n"
                                     "incompatible SATA 3 64\nschedule on 0x7f0830\n";
    scenario(kState);
    now_s += 3;
    const struct {
        uint32_t request;
        std::string in, out; // "" out: the record stays as it is
        long result = 0;
    } kCases[] = {
        {0xc0044b02, "ffffffff", "23020000"},
        {0xc0044b02, "ffffffff", "", -EAGAIN},
        {0xc0074b05, "ffffffffffffff", "010000 05 01 02 7c"}, // the second after the leap day's end, a Friday
        {0xc0074b06, "3b3b17 00 1f 0b 7c", ""},
        {0xc0074b05, "ffffffffffffff", "3b3b17 02 1f 0b 7c"}, // the clock knows the day of the week
        {0xc0074b06, "000000 00 1e 01 7c", "", -EINVAL},      // 30 February
        {0xc00c4b0b, "01000000 ffffffff ffffffff", "01000000 01000000 84030000"},
        {0xc00c4b0b, "03000000 ffffffff ffffffff", "", -EINVAL},
        {0xc0044b0d, "00000000", "11000000"},
        {0xc0044b10, "00000000", "fdffffff"},
        {0xc1344b12, "0000000000000000" + zeros300, "0100000001000000 30087f" + zeros300.substr(6)},
        {0xc1344b13, "0200000000000000 000101 3b1740" + zeros300.substr(12), ""},
        {0xc1344b12, "0000000000000000" + zeros300, "0200000000000000 000101 3b1740" + zeros300.substr(12)},
        {0xc1344b13, "6500000000000000" + zeros300, "", -EINVAL},
        {0xc0024b14, "10 00", "10 a5"},
        {0xc0024b15, "10 5a", ""},
        {0xc0024b14, "10 00", "10 5a"},
        {0xc0084b17, "02000000 00000000", ""},
        {0xc0044b18, "00000000", "02000000"},
        {0xc0084b19, "ffffffff ffffffff", "00000000 01000000"},
        {0xc00c4b1e, "ffffffffffffffffffffffff", "06000000 07000000 00000000"},
        {0xc0084b2b, "14000000 efbeadde", ""},
        {0xc0084b2c, "14000000 00000000", "14000000 efbeadde"},
        {0xc0014b2f, "4f00000000000000 07000000", "4e3132664e313200 07000000"},
        {0xc0014b2f, "5a00000000000000 07000000", "", -ETIMEDOUT},
        {0xc0014b30, "ffffffffffffffff 01000000", "3000000000000000 01000000"},
        {0xc0014b30, "ffffffffffffffff 08000000", "6100000000000000 01000000"},
        {0xc0014b30, "ffffffffffffffff 01000000", "0000000000000000 00000000"},
        {0xc0014b30, "0000000000000000 ffffffff", "", -EINVAL},
        {0xc0044b80, "02000000", "", -EINVAL},
        {0xc0044bce, "04000000 01000000", ""}, // eight bytes, though the code says four
        {0xc0044bcd, "04000000 ffffffff", "04000000 01000000"},
        {0xc0044bcd, "00010000 ffffffff", "", -EINVAL},
        {0xc0c44bdc, std::string(392, 'f'), groups},
        {0xc0044b03, "00000000", "", -ENOTTY},
        {0xc0024bcd, "04000000 00000000", "", -ENOTTY}, // the number of a request with another size is no request
    };
    for (const auto &[request, in, out, result] : kCases) {
        EXPECT_EQ(ask(request, hex(in)), result) << std::hex << request << " " << in;
        EXPECT_EQ(record(), hex(out.empty() ? in : out)) << std::hex << request << " " << in;
        if (result != -ENOTTY) { // one byte less is no record
            Bytes bytes = hex(in);
            bytes.pop_back();
            EXPECT_LT(ask(request, bytes), 0) << std::hex << request;
        }
    }
    EXPECT_EQ(state->event_source[0], 2);
}

TEST_F(Board, LampsSwitchesAndBeeps)
{
    // A control code or a text to the micro-controller, and what is in the drawing then.
    static const struct {
        int control;
        const char *text, *shown;
    } kCases[] = {
        {0x4003, "5", "[~] power blinking "},
        {0x0801, "8", "status green "},
        {0x11ff, ";", "status orange-blinking "},
        {0x5100, "@", "usb on "}, // the code for "on" and the text for "on" do not pair
        {0, "V05", "duty 05"},
        {0x5400, "1", " power_grant"},
    };
    for (const auto &[control, text, shown] : kCases) {
        board_init(state.get(), now_s);
        Bytes bytes(text, text + strlen(text) + 1);
        EXPECT_EQ(ask(0xc0014b21, bytes), 0) << text;
        EXPECT_NE(drawing().find(shown), std::string::npos) << text << "\n" << drawing();
        if (control == 0)
            continue;
        board_init(state.get(), now_s);
        Bytes call(144);
        memcpy(call.data(), &control, sizeof control);
        EXPECT_EQ(ask(0xc0904b01, call), 0) << std::hex << control;
        EXPECT_NE(drawing().find(shown), std::string::npos) << std::hex << control << "\n" << drawing();
    }

    // What only a code can say takes its value from the data, when there is data.
    Bytes memtest = hex("0359" + std::string(284, '0'));
    memtest[8] = 128;
    memtest[16] = 2;
    EXPECT_EQ(ask(0xc0904b01, memtest), 0);
    EXPECT_EQ(state->lamps[BOARD_LAMP_MEMTEST], BOARD_LIGHT_BLINKING);
    memtest[8] = 0;
    EXPECT_EQ(ask(0xc0904b01, memtest), 0);
    EXPECT_EQ(state->lamps[BOARD_LAMP_MEMTEST], BOARD_LIGHT_OFF);
    memtest[1] = 0x53; // 0x5303
    EXPECT_EQ(ask(0xc0904b01, memtest), -EINVAL);

    for (const char *text : {"3", "3", "2", "", "33", "nonsense that the line swallows"})
        EXPECT_EQ(ask(0xc0014b21, Bytes(text, text + strlen(text) + 1)), 0);
    EXPECT_EQ(state->beeps_long, 2U);
    EXPECT_EQ(state->beeps_short, 1U);
    EXPECT_EQ(ask(0xc0014b21, hex("3333")), -EFAULT); // the text runs out of the memory
}

TEST_F(Board, ARecordThatPointsToAText)
{
    memory.pieces[kName] = {'s', 'l', 'o', 't', 0};
    // disk, light, length of the name, padding, address of the name
    const std::string good = "02000000 02000000 05000000 cccccccc 0000020000000000";
    EXPECT_EQ(ask(0xc0184b0a, hex(good)), 0);
    EXPECT_EQ(ask(0xc0184b0a, hex("01000000 01000000 00000000 cccccccc 0000000000000000")), 0);
    EXPECT_EQ(ask(0xc0184b0a, hex("01000000 02000000 06000000 cccccccc 0000020000000000")), -EFAULT);
    EXPECT_EQ(ask(0xc0184b0a, hex("21000000 01000000 00000000 cccccccc 0000000000000000")), -EINVAL);
    EXPECT_EQ(ask(0xc0184b0a, hex("01000000 03000000 ffffffff cccccccc 0000020000000000")), -EINVAL);
    memory.pieces[kName] = Bytes(BOARD_TAIL_MAX, 'x'); // of a longer one so much is read, and no more
    EXPECT_EQ(ask(0xc0184b0a, hex("01000000 01000000 ffff0000 cccccccc 0000020000000000")), 0);
    EXPECT_NE(drawing().find("1:normal  2:fault  3:off  4:off"), std::string::npos) << drawing();
    EXPECT_EQ(transcript().substr(0, 88), "0xc0184b0a disk_led 2 2 5 \"slot\"\n"
                                          "0xc0184b0a disk_led 1 1 0 \"\"\n"
                                          "0xc0184b0a disk_led 1 2 6 ");

    // A caller that holds the record brings the text behind it.
    Bytes whole = hex(good + "736c6f7400");
    EXPECT_EQ(board_request(state.get(), now_s, 0xc0184b0a, whole.data(), whole.size(), 0), 0);
    EXPECT_EQ(board_request(state.get(), now_s, 0xc0184b0a, whole.data(), whole.size() - 1, 0), -EINVAL);
}

TEST_F(Board, EventsComeInOrderAndAreBounded)
{
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(board_event_raise(state.get(), 1), 0); // the queue's start moves on in its ring
        EXPECT_EQ(ask(0xc0044b02, Bytes(4)), 0);
        for (int code = 0; code < BOARD_EVENTS; code++)
            EXPECT_EQ(board_event_raise(state.get(), 0x200 + code), 0);
        EXPECT_EQ(board_event_raise(state.get(), 0x999), -ENOSPC);
        for (uint32_t left = BOARD_EVENTS; left > 0; left--) {
            ASSERT_EQ(ask(0xc0044b02, Bytes(4)), 0);
            EXPECT_EQ(record()[0], 0x40 - left);
            EXPECT_EQ(board_event_pending(state.get()), left - 1);
        }
    }

    // A press is a byte of the micro-controller; told to the driver, it is an event where the board is wired so.
    scenario("wire reset 0x230\npress reset\npress copy\npress power");
    EXPECT_EQ(ask(0xc0014b30, hex("0000000000000000 08000000")), 0);
    EXPECT_EQ(record(), hex("6160300000000000 03000000"));
    EXPECT_EQ(ask(0xc0044b09, Bytes(4)), 0);
    EXPECT_EQ(board_event_pending(state.get()), 0U);
    EXPECT_EQ(ask(0xc0044b08, Bytes(4)), 0);
    EXPECT_EQ(ask(0xc0044b02, Bytes(4)), 0);
    EXPECT_EQ(record(), hex("30020000"));
}

TEST_F(Board, OrderedFailures)
{
    scenario("fail temperature EIO 2 1\nfail 0xc0044b25 ENODEV");
    for (const long result : {0, -EIO, -EIO, 0, 0})
        EXPECT_EQ(ask(0xc0044b10, Bytes(4)), result);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(ask(0xc0044b25), -ENODEV);
    EXPECT_EQ(state->switches[BOARD_SWITCH_DISK_MASK], 0);
    scenario("fail disk_led_mask none");
    EXPECT_EQ(ask(0xc0044b25), 0);
    EXPECT_EQ(state->switches[BOARD_SWITCH_DISK_MASK], 1);
}

TEST_F(Board, ScenarioFaultsNameTheirLine)
{
    static const struct {
        const char *text, *error;
    } kCases[] = {
        {"colour red", "line 1: no such word: \"colour\""},
        {"\n# comment\n  led power green # why not\nled power purple", "line 4: expected: led LAMP LIGHT"},
        {"clock 2023-02-29 00:00:00", "line 1: expected: clock YYYY-MM-DD HH:MM:SS"},
        {"gpio 1 0x100000000", "line 1: expected: gpio PIN VALUE"},
        {"schedule on 0x01003c", "line 1: expected: schedule on|off [0xWWHHMM ...]"},
        {"fail temperature EWRONG", "line 1: expected: fail REQUEST ERRNO|none [COUNT [AFTER]]"},
        {"micro_reply O \"123456789\"", "line 1: expected: micro_reply TEXT REPLY"},
        {"micro_reply O \"12", "line 1: a word is too long, empty or its quote does not end"},
        {"incompatible A 1\nincompatible B 1\nincompatible C 1",
         "line 3: no room for more: incompatible NAME DISK ..."},
    };
    char error[100];
    for (const auto &[text, expected] : kCases) {
        EXPECT_LT(board_scenario_load(state.get(), now_s, text, strlen(text), error, sizeof error), 0) << text;
        EXPECT_STREQ(error, expected);
    }
    char cut[10];
    EXPECT_LT(board_scenario_load(state.get(), now_s, "disks five", 10, cut, sizeof cut), 0);
    EXPECT_STREQ(cut, "line 1: e");
    // Good lines before a bad one stay; the bad one does nothing.
    const std::string text = "led alert on\nled usb on extra\nled esata on\n";
    EXPECT_EQ(board_scenario_load(state.get(), now_s, text.data(), text.size(), error, sizeof error), -EINVAL);
    EXPECT_NE(drawing().find("alert on   \n           [ ] usb off   [ ] esata off"), std::string::npos) << drawing();

    scenario("micro_reply \"\\x5a #\\\"\" \"a\\\\b\"\t# quotes keep blanks and marks\r\n");
    EXPECT_EQ(ask(0xc0014b2f, hex("5a2023220000000008000000")), 0);
    EXPECT_EQ(record(), hex("615c620000000000 03000000"));
}

TEST_F(Board, TranscriptIsARing)
{
    scenario("fail temperature EIO 1");
    ask(0xc0044b10, Bytes(4));
    ask(0xc0044bcd, hex("04000000 ffffffff"));
    ask(0xc0014b2f, hex("4f00000000000000 07000000"));
    ask(0xc0014b21, hex("01 22 41 00"));
    ask(0xc0044b99, Bytes(4));
    ask(0xc0044b10, Bytes(3));
    EXPECT_EQ(transcript(), "0xc0044b10 temperature = -EIO\n"
                            "0xc0044bcd gpio_read 4 -> 0\n"
                            "0xc0014b2f micro_ask \"O\" 7 -> \"N12fN12\" 7\n"
                            "0xc0014b21 micro_write \"\\x01\\\"A\"\n"
                            "0xc0044b99 unknown = -ENOTTY\n"
                            "0xc0044b10 temperature -> 38\n");
    for (int i = 0; i < BOARD_NOTES + 5; i++)
        board_note(state.get(), "line %d", i);
    EXPECT_TRUE(transcript().starts_with("... 5 lines lost\nline 5\nline 6\n"));
    board_note(state.get(), "%s", std::string(500, 'x').c_str());
    EXPECT_EQ(transcript(), std::string(BOARD_NOTE_ROOM - 1, 'x') + "\n");
}

// However the stream is cut, the panel shows the same.
TEST_F(Board, PanelTakesAStream)
{
    std::string lines = "-A#No Hard Disks!#Please Insert#";
    lines.resize(102);
    std::string full = "-A#" + std::string(60, 'a') + "#" + std::string(38, 'b'); // cut to its 102 bytes
    const std::string stream = std::string("7\0", 2) + std::string("-Ff\0", 4) + full + lines + ";1";
    for (size_t cut = 0; cut <= stream.size(); cut++) {
        board_init(state.get(), now_s);
        cursor = 0;
        board_panel_write(state.get(), stream.data(), cut);
        board_panel_write(state.get(), stream.data() + cut, stream.size() - cut);
        ASSERT_STREQ(state->panel_lines[0], "No Hard Disks!") << cut;
        ASSERT_STREQ(state->panel_lines[1], "Please Insert") << cut;
        ASSERT_EQ(state->lamps[BOARD_LAMP_PANEL_STATUS], BOARD_LIGHT_ORANGE_BLINKING) << cut;
        ASSERT_EQ(state->lamps[BOARD_LAMP_PANEL_ALERT], BOARD_LIGHT_ON) << cut;
        ASSERT_EQ(transcript(), "panel 0x37\npanel -Ff\npanel \"" + std::string(49, 'a') + "\" \"" +
                                    std::string(38, 'b') + "\"\npanel \"No Hard Disks!\" \"Please Insert\"\n" +
                                    "panel 0x3b\npanel 0x31\n")
            << cut;
    }
    EXPECT_NE(drawing().find("|No Hard Disks!                          |\n"), std::string::npos) << drawing();
    EXPECT_TRUE(drawing().starts_with("clock      2000-01-01 00:00:00\n")) << drawing();
}

TEST(BoardTime, AgreesWithTheLibrary)
{
    // From 1900 to 2155, in steps that meet every hour, weekday and month's end.
    for (time_t seconds = -2208988800; seconds < 5869584000; seconds += 40009) {
        tm expected = {};
        gmtime_r(&seconds, &expected);
        board_time split;
        board_time_split(seconds, &split);
        ASSERT_TRUE(split.second == expected.tm_sec && split.minute == expected.tm_min &&
                    split.hour == expected.tm_hour && split.week_day == expected.tm_wday &&
                    split.month_day == expected.tm_mday && split.month == expected.tm_mon &&
                    split.year == expected.tm_year)
            << seconds;
        int64_t joined = 0;
        ASSERT_EQ(board_time_join(&split, &joined), 0) << seconds;
        ASSERT_EQ(joined, seconds);
    }
}

// The check program's judgement, on a device that is the board with a fault of ours.
struct Device {
    board simulated;
    std::string report;
    uint32_t spoilt = 0; // the request whose answer we change
    void (*spoil)(uint8_t *record) = nullptr;

    static uint8_t *pointer(uint64_t address)
    {
        return reinterpret_cast<uint8_t *>(address); // NOLINT(performance-no-int-to-ptr): what a carrier gets
    }
    static int in(void * /*context*/, void *to, uint64_t from, size_t bytes)
    {
        return memcpy(to, pointer(from), bytes), 0;
    }
    static int out(void * /*context*/, uint64_t to, const void *from, size_t bytes)
    {
        return memcpy(pointer(to), from, bytes), 0;
    }
    static int ask(void *context, uint32_t request, uintptr_t argument)
    {
        static constexpr board_memory kSame = {in, out, nullptr};
        auto *device = static_cast<Device *>(context);
        const auto result = static_cast<int>(board_ioctl(&device->simulated, 0, request, argument, &kSame));
        if (request == device->spoilt && device->spoil != nullptr)
            device->spoil(pointer(argument));
        return result;
    }
    static void tell(void *context, const char *line)
    {
        static_cast<Device *>(context)->report += std::string(line) + "\n";
    }
};

TEST(BoardCheck, JudgesADevice)
{
    static const struct {
        uint32_t request;
        void (*spoil)(uint8_t *record);
        const char *line;
    } kCases[] = {
        {0xc0074b05, [](uint8_t *r) { r[5] = 12; }, "odd      0xc0074b05 rtc_read -> 0 0 0 6 1 12 100: no such time"},
        {0xc0044b10, [](uint8_t *r) { memset(r, 0xa5, 4); }, ": the record was not filled"},
        {0xc0044b10, [](uint8_t *r) { r[1] = 1; }, "temperature -> 294: no temperature of a board that runs"},
        {0xc0044bcd, [](uint8_t *r) { r[8] = 0; }, "gpio_read 0 -> 0: bytes behind the record were written"},
        {0xc0104b22, [](uint8_t *r) { r[0] = 4; }, ": no number of cores"},
        {0xc0c44bdc, [](uint8_t *r) { r[0] = 2, memset(r + 68, 'n', 32); }, ": a name without end"},
    };
    Device device;
    const board_device access = {Device::ask, Device::tell, &device};
    for (const auto &[request, spoil, line] : kCases) {
        board_init(&device.simulated, 0);
        device.report.clear();
        device.spoilt = request;
        device.spoil = spoil;
        EXPECT_EQ(board_check(&access, 0), 1) << device.report;
        EXPECT_NE(device.report.find(std::string(line) + "\n"), std::string::npos) << line << "\n" << device.report;
    }

    device.spoil = nullptr;
    const auto check = [&](const char *scenario, int change) {
        char error[100];
        device.report.clear();
        EXPECT_EQ(board_scenario_line(&device.simulated, 0, scenario, error, sizeof error), 0);
        return board_check(&access, change);
    };
    board_init(&device.simulated, 0);
    EXPECT_EQ(check("cpld_byte 0 0x77", 0), 0) << device.report;
    EXPECT_EQ(device.simulated.switches[BOARD_SWITCH_STARTED], 0);
    EXPECT_NE(device.report.find("left out 0xc0044b24 start: it changes the board\n"), std::string::npos);

    EXPECT_EQ(check("", 1), 0) << device.report; // with change; what was read is as before
    EXPECT_EQ(device.simulated.registers[0], 0x77);
    EXPECT_EQ(device.simulated.switches[BOARD_SWITCH_MICRO_VERSION], 0);
    EXPECT_EQ(std::count(device.report.begin(), device.report.end(), '\n'), BOARD_REQUESTS);
    EXPECT_EQ(check("fail rtc_read EIO", 1), 1);
    EXPECT_NE(device.report.find("failed   0xc0074b05 rtc_read = -EIO\n"
                                 "left out 0xc0074b06 rtc_write: what was read is not fit to be written back\n"),
              std::string::npos)
        << device.report;
}

} // namespace

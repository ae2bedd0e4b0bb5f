// The manufacturing daemon as a station on the wire meets it.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "applets/manutild.h"
#include "tests/support/box_links.h"
#include "tests/support/box_station.h"
#include "tests/support/sandbox.h"
#include "tests/support/udpd_datagram.h"

namespace
{

constexpr uint16_t kPort = 1122;
constexpr double kLimit_s = 60; // for what comes sooner unless the machine is busy
constexpr char kGreen[] = "board 0xc0904b01 control 0x5200 0x0 \"\"";
constexpr char kOrange[] = "board 0xc0904b01 control 0x5201 0x0 \"\"";
constexpr char kBlinking[] = "board 0xc0904b01 control 0x5202 0x0 \"\"";

std::string result_text(uint32_t result)
{
    return {static_cast<char>(result >> 24), static_cast<char>(result >> 16), static_cast<char>(result >> 8),
            static_cast<char>(result)};
}

const std::string kDone = result_text(0), kFailed = result_text(1);

std::string padded(std::string text, size_t size)
{
    text.resize(size);
    return text;
}

// The reply to event 72 when `text` is how far the test has come.
std::string progress_reply(const std::string &text)
{
    return result_text(2) + padded(text, 60);
}

// A unit on a wire with a station. Its pauses are over at once, but not those of the beeper.
struct Unit : Sandbox {
    BoxLinks links{*this};
    std::string mac{};
    std::unique_ptr<BoxStation> station{};

    Unit()
    {
        EXPECT_TRUE(links.live_wire("eth0", "peer0")) << strerror(errno);
        mac = box_mac(*this, "eth0");
        station = std::make_unique<BoxStation>(*this, "peer0");
        for (const char *seconds : {"15", "1", "5"})
            call({.call = "sleep", .args = seconds});
        call({.call = "usleep"});
        leaves({"process manutild", "/var/run/manutild.pid*"}); // it may just be replacing the file
        file("/proc/sys/kernel/norv_serial", "1234567890123\n");
        for (const char *path : {"/bin/cat", "/bin/rm"})
            host_program(path);
        program("/bin/touch");
    }
    // A model, and a boot partition for the record.
    void equip()
    {
        program("/bin/killall");
        file("/etc/norvinfo.conf", "unique=\"norv_a_1\"\n");
        file("/etc.defaults/VERSION", "buildnumber=\"42\"\n");
        file("/proc/sys/kernel/norv_install_flag", "0");
        host_file("/bin/mkdir", "/bin/mkdir");
        leaves({"/tmp/bootmnt*", "/.box/volumes/*", "semaphore *"});
    }
    void launch()
    {
        const Result result = run({"manutild"});
        EXPECT_EQ(result.exit_status, 0) << result.record.text();
        ASSERT_TRUE(wait_for("select 3*", kLimit_s));
    }
    void send(const UdpdDatagram &datagram) const { station->send_udp(kPort, datagram.bytes()); }
    void send(uint16_t event, const std::string &payload = "") const { send({.event = event, .payload = payload}); }

    // Takes the frames of one message and expects each to be right to the last byte.
    void expect_reply(uint16_t event, const std::string &payload, const std::string &source_ip = "\x78\x56\x34\x12")
    {
        SCOPED_TRACE("event " + std::to_string(event));
        uint32_t fragment = 0;
        for (size_t at = 0; at == 0 || at < payload.size(); at += 1024, fragment++) {
            const UdpdDatagram part{.event = event,
                                    .payload = payload.substr(at, 1024),
                                    .flags = static_cast<uint16_t>(at + 1024 >= payload.size() ? 0xc000 : 0x4000),
                                    .fragment = fragment};
            const UdpFrame frame{.source_mac = mac,
                                 .source_ip = source_ip,
                                 .source_port = 9999,
                                 .destination_port = kPort,
                                 .payload = part.bytes()};
            EXPECT_EQ(testing::PrintToString(station->receive(kLimit_s)), testing::PrintToString(frame.bytes()))
                << record().text();
        }
    }
    void ask(uint16_t event, const std::string &payload, const std::string &reply)
    {
        send(event, payload);
        expect_reply(event, reply);
    }
    // Ends the daemon and whatever it started; returns its exit status.
    int stop()
    {
        send(kUdpdEventStop);
        int status = -1;
        const std::string pid = read_file("/var/run/manutild.pid");
        EXPECT_TRUE(wait_for_end(std::stoi(pid), kLimit_s, &status));
        EXPECT_EQ(station->receive(0.05), ""); // nothing was left to be heard
        for (const Running &process : processes()) {
            signal(process.pid, SIGKILL);
            EXPECT_TRUE(wait_for_end(process.pid, kLimit_s));
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST(Manutild, EndsWithoutItsInterface)
{
    Sandbox bare;
    bare.call({.call = "sleep"});
    bare.leaves({"process manutild", "/var/run/manutild.pid*"});
    bare.run({"manutild"});
    EXPECT_TRUE(bare.wait_for("log err udpd_run.cpp:* set socket option error: failed to bind to eth0", kLimit_s));
    for (int tries = 0; tries < 1000 && !bare.processes().empty(); tries++)
        usleep(10000);
    EXPECT_TRUE(bare.processes().empty());
}

TEST(Manutild, TellsTheMemoryTestsProgress)
{
    static constexpr struct {
        const char *progress; // NULL: no file
        const char *reply;
        const char *log;
    } kCases[] = {
        {nullptr, "0%", "log err manutild.cpp:* Fail to open uart2.*"}, // of the start
        {"1205/9999\n", "12.5%", nullptr},
        {"77/77", "98.71%", nullptr},
        {"18446744073709551615/1", "99.99%", nullptr},
        {"", "0%", "log err * cannot find '/' in []"},
        {"1/18446744073709551616\n", "0%",
         "log err * convert 18446744073709551616 fail: Numerical result out of range"},
    };
    Unit unit;
    unit.call({.call = "bind", .real = true});
    unit.launch();
    for (const auto &[progress, reply, log] : kCases) {
        if (progress != nullptr)
            unit.file("/tmp/memtester.progress", progress);
        unit.ask(kManMemTestProgress, "", progress_reply(reply));
        EXPECT_TRUE(log == nullptr || unit.record().count(log) == 1) << log;
    }
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_TRUE(
        unit.record().in_order({"sleep 15", "log err manutild_main(*): Error to open UART2", "bind *", "select 3*"}));
}

// And a reply that cannot be sent ends nothing.
TEST(Manutild, PassesOverWhatIsNotForIt)
{
    Unit unit;
    unit.call({.call = "socket", .args = std::to_string(AF_PACKET) + " *", .error = EPERM, .times = 1});
    unit.launch();
    unit.send(kManMemTestProgress);
    unit.send({.payload = "x", .name = "norvmanl"});
    unit.send({.event = kManGroupOperation, .payload = "exit 9", .length = 7});
    for (const int event : {0, kUdpdHandlersMax - 1, kUdpdEventStop + 1, kUdpdEventsMax, 0xffff})
        unit.send(static_cast<uint16_t>(event), "x");
    unit.ask(kManMemTestProgress, "", progress_reply("0%"));
    EXPECT_EQ(unit.record().count("log err norvudpd.c: broadcast error."), 1);
    box_address_set(unit, "eth0", "192.0.2.7");
    unit.send(kManMemTestProgress);
    unit.expect_reply(kManMemTestProgress, progress_reply("0%"), std::string("\xc0\x00\x02\x07", 4));
    EXPECT_EQ(unit.stop(), 0);
}

// Of a message whose rest stays away the beginning is dropped, after three waits.
TEST(Manutild, DropsAMessageWhoseRestStaysAway)
{
    Unit unit;
    unit.compress_sleeps(300);
    unit.launch();
    unit.send({.event = kManGroupOperation, .payload = "echo ", .flags = 0});
    const int before = unit.record().count("select 3*");
    for (int i = 0; i < 1000 && unit.record().count("select 3*") < before + 30; i++)
        usleep(10000);
    unit.send({.event = kManGroupOperation, .payload = "late", .fragment = 1});
    unit.ask(kManMemTestProgress, "", progress_reply("0%"));
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_EQ(unit.record().count("run /bin/sh*"), 0);
}

TEST(Manutild, RunsACommandAndReturnsItsOutput)
{
    const std::string to_output = " > /tmp/manutil_command.output", serial = padded("SN=1234567890123", 64);
    const struct {
        std::string command, reply;
    } kCases[] = {
        {"echo hello" + to_output + "; exit 3", kDone + result_text(3) + serial + padded("hello\n", 1280)},
        {"kill -9 $$", kDone + result_text(UINT32_MAX) + serial + padded("", 1280)}, // no output is left
        {"", padded(result_text(UINT32_MAX) + result_text(UINT32_MAX), 1352)},
    };
    Unit unit;
    unit.launch();
    for (const auto &[command, reply] : kCases)
        unit.ask(kManGroupOperation, command, reply);
    // The command is longer than a datagram, its output than the reply; a byte behind it must not count.
    std::string whole = "x=" + std::string(2300, 'y') + "; echo ${#x}$x" + to_output;
    unit.send({.event = kManGroupOperation, .payload = whole.substr(0, 1024), .flags = 0});
    unit.send({.event = kManGroupOperation, .payload = whole.substr(0, 1024), .flags = 0});
    unit.send({.event = kManGroupOperation, .payload = whole.substr(1024, 1024), .flags = 0, .fragment = 1});
    unit.send({.event = kManGroupOperation, .payload = whole.substr(2048), .fragment = 2});
    unit.expect_reply(kManGroupOperation,
                      kDone + result_text(0) + serial + padded("2300" + std::string(1019, 'y'), 1280));
    unit.remove("/proc/sys/kernel/norv_serial");
    unit.ask(kManGroupOperation, "echo after" + to_output,
             kDone + result_text(0) + padded("SN=", 64) + padded("after\n", 1280));
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_TRUE(unit.record().in_order({"run /bin/cat /proc/sys/kernel/norv_serial", "log err * serial = 1234567890123",
                                        "log err * group operation initiated, cmd='echo hello*; exit 3'"}));
    EXPECT_FALSE(unit.exists("/tmp/manutil_command.output"));
}

TEST(Manutild, ExportsTheUnitsRecord)
{
    const std::string log = "/var/log/mantool_export", busy = "/tmp/exporting_mantool";
    Unit unit;
    unit.leaves({log, busy, "/var/log"});
    unit.directory("/var/log");
    unit.file(log, "of the day before");
    unit.program("/bin/mantool", {{.args = "-sn_get", .output = "SN:1\n"},
                                  {.args = "-mac_get", .output = std::string(5000, 'm')},
                                  {.args = "-test_flag_list", .times = 1},
                                  {.args = "-test_flag_list", .exit_status = 1}});
    unit.launch();
    unit.ask(kManTestFlagGet, "", kDone + "SN:1\n" + std::string(4087, 'm'));
    EXPECT_FALSE(unit.exists(busy));
    unit.send(kManTestFlagGet); // the last of the three fails
    unit.expect_reply(kManTestFlagGet, kFailed);
    EXPECT_TRUE(unit.exists(busy));
    unit.send(kManTestFlagGet); // refused without a reply from then on
    EXPECT_TRUE(unit.wait_for("log err * Other process is processing ManTestFlagGet, abort", kLimit_s));
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_EQ(unit.record().count("run /bin/mantool *"), 6);
}

// Who runs in the box's /proc; killing ends it after so many tries.
void process_add(Unit &unit, const std::string &pid, const std::string &name, const std::string &state, int kills)
{
    const std::string path = "/proc/" + pid + "/stat";
    unit.file(path, pid + " (" + name + ") " + state + " 1 1\n");
    if (kills > 1)
        unit.program("/bin/killall", {{.args = "-9 " + name, .exit_status = 0, .times = kills - 1}});
    if (kills > 0)
        unit.program("/bin/killall",
                     {{.args = "-9 " + name, .effect = [&unit, path](const ProgramCall &) { unit.remove(path); }}});
}

TEST(Manutild, GroupActionRunsItsCommandsOnce)
{
    Unit unit;
    unit.program("/bin/killall");
    process_add(unit, "70", "burnin_test", "S", 2);
    process_add(unit, "71", "memtester", "Z", 0); // dead already
    process_add(unit, "72", "memtester2", "R", 0);
    unit.program("/bin/first", {{.exit_status = 1, .times = 4}, {}});
    unit.program("/bin/second");
    unit.file("/tmp/left", "");
    unit.launch();
    unit.ask(kManGroupAction, "first a,second b,c", kDone);
    unit.ask(kManGroupAction, "first a,second b,c", kDone);
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_FALSE(unit.exists("/tmp/left"));
    std::vector<std::string> steps;
    for (const char *name : {"burnin_test", "burnin_test", "memtester"})
        for (const std::string &step :
             {std::string(kBlinking), std::string("sleep 1"), std::string("log err killall -9 ") + name,
              std::string("run /bin/killall -9 ") + name})
            steps.push_back(step);
    for (const char *step : {"run /bin/rm -f /tmp/left", kBlinking,
                             "log err manutild_group_action.cpp:*(ErrMANIDoGroupAction) szCommand1=[first a]",
                             "log err *(ErrMANIDoGroupAction) szCommand2=[second b,c]", "usleep *", "run /bin/first a",
                             "run /bin/second b,c", "run /bin/touch /tmp/noledproc", "sleep 5", kGreen})
        steps.emplace_back(step);
    EXPECT_TRUE(unit.record().in_order(steps));
    EXPECT_EQ(unit.record().count("run /bin/first a"), 5);
    EXPECT_EQ(unit.record().count("run /bin/second *"), 1);
    EXPECT_EQ(unit.record().count(kGreen), 1);
}

TEST(Manutild, GroupActionTellsItsFailure)
{
    const struct {
        const char *payload, *log;
        int first, second;
        bool burnin_survives;
    } kCases[] = {
        {"fails,second", "log err manutil.c update cmd1 error", 5, 0, false},
        {"second,fails", "log err manutil.c update cmd2 error", 1, 1, false},
        {"no comma", "log err killall -9 memtester", 0, 0, false},
        {"second,second", "log err killall -9 burnin_test", 0, 0, true},
    };
    for (const auto &[payload, log, first, second, burnin_survives] : kCases) {
        SCOPED_TRACE(payload);
        Unit unit;
        unit.program("/bin/killall");
        unit.program("/bin/second");
        unit.program("/bin/fails", {{.exit_status = 1}});
        if (burnin_survives)
            process_add(unit, "70", "burnin_test", "D", 0);
        unit.launch();
        unit.ask(kManGroupAction, payload, kFailed);
        EXPECT_EQ(unit.stop(), 0);
        const Record record = unit.record();
        EXPECT_EQ(record.count(log), burnin_survives ? 11 : 1);
        EXPECT_EQ(record.count("run /bin/fails") + record.count("run /bin/second"), first + second);
        EXPECT_EQ(record.count(kOrange), 1);
        EXPECT_EQ(record.count(kGreen), 0);
    }
}

TEST(Manutild, UnitWithDisksIsLeftAlone)
{
    for (const char *disk : {"/proc/ide/hda", "/sys/block/sda", "/sys/block/sdd"}) {
        Unit unit;
        unit.directory(disk);
        unit.launch();
        for (const uint16_t event : {kManGroupAction, kManFinalCheck, kManFinalCheck})
            unit.ask(event, "true,true", kDone);
        EXPECT_EQ(unit.stop(), 0);
        EXPECT_EQ(unit.record().count("run *"), 0);
        EXPECT_EQ(unit.record().count("board * control *"), 0);
    }
}

TEST(Manutild, FailedCheckBeepsAndIsNotRepeated)
{
    Unit unit;
    unit.program("/bin/killall");
    unit.file("/etc/norvinfo.conf", "unique=\"norv_a_1\"\n");
    unit.file("/etc.defaults/VERSION", "buildnumber=\"42\"\n");
    unit.launch();
    unit.ask(kManFinalCheck, std::string(64, 'x'), kFailed);
    EXPECT_EQ(unit.record().count("run *"), 0);
    unit.ask(kManFinalCheck, "norv_a_1,43", kFailed);
    EXPECT_TRUE(unit.wait_for("sleep 2", kLimit_s));
    unit.ask(kManFinalCheck, "norv_a_1,42", kFailed);
    EXPECT_EQ(unit.processes().size(), 2U); // the daemon and its beeper
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_GE(unit.record().count("board 0xc0904b01 control 0x5301 *"), 1);
    EXPECT_EQ(unit.record().count(kOrange), 1);
    EXPECT_EQ(unit.record().count("run /bin/killall *"), 2);
}

// What the station gives a unit stands in its record: addresses for both ports, and the custom serial. With a serial
// and an address for each port the unit passes its check, once.
TEST(Manutild, StoresTheUnitsIdentityAndPassesItsCheck)
{
    const std::string record = "/.box/volumes/dev:norvboot2/vender";
    Unit unit;
    unit.equip();
    unit.launch();
    EXPECT_EQ(unit.run({"mantool", "-sn_set", "A8ODN02468"}).out, "");

    const struct {
        std::string base;
        std::string reply;
        std::string macs[2]; // as the tool tells them
        const char *log;     // NULL: none
    } kSets[] = {
        {{"\x00\x11\x32\xff\xff\xff", 6}, kDone, {"00:11:32:FF:FF:FF", "00:11:33:00:00:00"}, nullptr},
        {{"\xff\xff\xff\xff\xff\xffmore", 10},
         kFailed,
         {"FF:FF:FF:FF:FF:FF", "00:11:33:00:00:00"}, // the second one does not fit
         "log err manutild_vender.cpp:* mac address is overflowed"},
    };
    for (const char *too_short : {"", "\x02\x22\x33\x44\x55"})
        unit.ask(kManMacSet, too_short, kFailed);
    unit.ask(kManCustomSnSet, "", kFailed);
    for (const auto &[base, reply, macs, log] : kSets) {
        unit.ask(kManMacSet, base, reply);
        for (int i = 0; i < 2; i++)
            EXPECT_EQ(unit.run({"mantool", "-mac_get", std::to_string(i + 1)}).out, "MAC:" + macs[i] + "\n");
        EXPECT_TRUE(log == nullptr || unit.record().count(log) == 1);
    }
    unit.ask(kManCustomSnSet, std::string("CUSTOM-1\0behind it", 18), kDone);
    EXPECT_EQ(unit.read_file(record).substr(220, 32), padded("CUSTOM-1", 32));
    unit.ask(kManCustomSnSet, std::string(32, 'c'), kFailed);
    EXPECT_EQ(unit.read_file(record).substr(220, 32), padded("CUSTOM-1", 32));

    unit.ask(kManFinalCheck, "norv_a_1,42", kDone);
    EXPECT_EQ(unit.record().count(kGreen), 1);
    EXPECT_EQ(unit.record().count(kOrange), 0);
    unit.ask(kManFinalCheck, "norv_a_1,42", kFailed);
    EXPECT_EQ(unit.record().count("log err manutild_vender.cpp:* failed to set mac address *"), 0);
    unit.call({.call = "mount", .error = EIO}); // from here on there is no record
    unit.ask(kManMacSet, std::string("\x02\x00\x00\x0a\x0b\x0c", 6), kFailed);
    EXPECT_EQ(unit.record().count("log err manutild_vender.cpp:* failed to set mac address 1"), 1);
    EXPECT_EQ(unit.stop(), 0);
}

// A unit fails its check when its record lacks what names it.
TEST(Manutild, RecordIsPartOfTheCheck)
{
    for (const bool has_serial : {false, true}) { // and one address less than two
        SCOPED_TRACE(has_serial);
        Unit unit;
        unit.equip();
        if (has_serial)
            unit.run({"mantool", "-sn_set", "A8ODN02468"});
        for (int i = has_serial ? 2 : 1; i <= 2; i++)
            unit.run({"mantool", "-mac_set", std::to_string(i), "0200000A0B0C"});
        unit.launch();
        unit.ask(kManFinalCheck, "norv_a_1,42", kFailed);
        EXPECT_EQ(unit.record().count(kOrange), 1);
        EXPECT_EQ(unit.stop(), 0);
    }
}

} // namespace

#include "tools/norv-station/station.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "applets/manutild.h"
#include "manutil/test_flags.h"
#include "tools/norv-station/report.h"

volatile bool gblStationStop;

namespace
{

constexpr uint16_t kDaemonPort = 1122, kLogPort = 1123, kLogEvent = 1;
constexpr char kDaemonName[8] = {'m', 'a', 'n', 'u', 't', 'i', 'l', 'd'};
constexpr char kLogName[8] = {'n', 'o', 'r', 'v', 'm', 'a', 'n', 'l'}; // as much as fits of norvmanlogd
constexpr int kPoll_ms = 500;

struct Event {
    ManEvent number;
    int tries;             // 1 for what must not be done twice: the time to answer is the same
    int extra_seconds = 0; // that it may take beyond an answer
};
constexpr Event kMacSet = {kManMacSet, 3};
constexpr Event kCustomSnSet = {kManCustomSnSet, 3};
constexpr Event kGroupAction = {kManGroupAction, 1, 60};
constexpr Event kOperation = {kManGroupOperation, 1};
constexpr Event kFlagGet = {kManTestFlagGet, 3};
constexpr Event kFinalCheck = {kManFinalCheck, 1, 60};
constexpr Event kMemory = {kManMemTestProgress, 3};

// Cuts a message into its datagrams and sends them.
void message_send(const StationPort &port, const Mac &to, int event, uint16_t id, const std::string &message)
{
    UdpdFrame frame = {};
    memcpy(frame.szMagic, kUdpdMagic, sizeof(frame.szMagic));
    memcpy(frame.szName, kDaemonName, sizeof(frame.szName));
    frame.usEvent = static_cast<uint16_t>(event);
    frame.usId = id;
    size_t at = 0;
    do { // an empty message is one datagram, too
        const size_t bytes = std::min<size_t>(message.size() - at, kUdpdPayloadMax);
        uint8_t datagram[kUdpdFrameMax];
        frame.usLength = static_cast<uint16_t>(bytes);
        frame.usFlags = at + bytes == message.size() ? kUdpdLast : 0;
        memcpy(datagram, &frame, sizeof(frame));
        std::copy_n(message.data() + at, bytes, datagram + sizeof(frame));
        port_send(port, to, kDaemonPort, {datagram, sizeof(frame) + bytes});
        at += bytes;
        frame.nFragment++;
    } while (at < message.size());
}

std::string clock_text()
{
    const time_t now = time(nullptr);
    struct tm local = {};
    char text[32];
    localtime_r(&now, &local);
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

void log_take(Station *station, const Arrival &arrival, const UdpdFrame &frame)
{
    const std::string_view text(reinterpret_cast<const char *>(arrival.payload.data()) + sizeof(frame), frame.usLength);
    LogLineHeard line = {clock_text(), arrival.from, {}};
    if (memcmp(frame.szName, kLogName, sizeof(kLogName)) != 0 || frame.usEvent != kLogEvent ||
        frame.usFlags != kUdpdLast || frame.nFragment != 0 || !log_line_parse(text, &line.records))
        return;
    station->is_log_lost |= !report_log(station, line);
    station->log.push_back(line);
}

// Begins to wait for a unit's answer to the request under way.
bool answer_expect(StationUnit *unit)
{
    memcpy(unit->handle.szWireName, kDaemonName, sizeof(unit->handle.szWireName));
    unit->reply.reset();
    return udpd_message_start(&unit->message, kUdpdEventAny) == 0;
}

// A unit answers the question that looks for units. It does so once each time, and in order.
void unit_heard(Station *station, const Arrival &arrival, uint16_t id)
{
    const auto [place, is_new] = station->units.try_emplace(arrival.from);
    StationUnit &unit = place->second;
    if (is_new)
        unit.port = arrival.port;
    else if (unit.port == arrival.port) // two of the station's ports may lead to the same segment
        unit.is_double |= static_cast<int16_t>(id - unit.answered_id) <= 0;
    unit.answered_id = id;
}

void reply_take(Station *station, const Arrival &arrival, UdpdFrame frame)
{
    if ((frame.usFlags & kUdpdNoRequest) == 0 || frame.usEvent != station->request_event ||
        memcmp(frame.szName, kDaemonName, sizeof(kDaemonName)) != 0 ||
        static_cast<uint16_t>(station->request_id - frame.usId) >= station->requests_open)
        return; // a request of somebody, or an answer that comes too late
    if (station->is_finding) {
        unit_heard(station, arrival, frame.usId);
        return;
    }
    const auto unit = station->units.find(arrival.from);
    if (unit == station->units.end() || unit->second.reply)
        return;
    StationUnit &known = unit->second;
    frame.usFlags &= static_cast<uint16_t>(~kUdpdNoRequest); // as the daemon itself would take it
    memcpy(arrival.payload.data(), &frame, sizeof(frame));
    if (udpd_message_take(&known.message, &known.handle, arrival.payload.data(), arrival.payload.size()) ==
        UdpdTake::kComplete)
        known.reply = std::string(reinterpret_cast<const char *>(known.message.data), known.message.length);
}

// Takes what comes until `end_ms`, or the next thing that came.
void arrivals_take(Station *station, int64_t end_ms)
{
    const auto left = static_cast<int>(std::max<int64_t>(end_ms - now_ms(), 0));
    Arrival arrival;
    UdpdFrame frame;
    if (!ports_receive(station->ports, left, &arrival) || arrival.payload.size() < sizeof(frame))
        return;
    memcpy(&frame, arrival.payload.data(), sizeof(frame));
    if (memcmp(frame.szMagic, kUdpdMagic, sizeof(kUdpdMagic)) != 0 || frame.nReserved != 0 ||
        frame.usLength > arrival.payload.size() - sizeof(frame))
        return;
    if (arrival.udp_port == kLogPort)
        log_take(station, arrival, frame);
    else if (arrival.udp_port == kDaemonPort)
        reply_take(station, arrival, frame);
}

void wait_for(Station *station, int milliseconds)
{
    for (const int64_t end = now_ms() + milliseconds; now_ms() < end && !gblStationStop;)
        arrivals_take(station, end);
}

void fault_add(Station *station, StationUnit *unit, const std::string &fault)
{
    unit->faults.push_back(fault);
    report_show(station, unit);
}

bool is_answered(const StationUnit &unit)
{
    return !unit.request || unit.reply;
}

bool all_answered(const Station &station)
{
    return std::all_of(station.units.begin(), station.units.end(),
                       [](const auto &unit) { return is_answered(unit.second); });
}

// Every request has a number of its own, which its answers bear. The first is taken from the clock, so that what a unit
// still answers to a station that was stopped is no answer to the next one.
void request_number(Station *station, ManEvent event)
{
    station->request_id = static_cast<uint16_t>(station->request_event == 0 ? now_ms() : station->request_id + 1);
    station->request_event = event;
    station->requests_open = station->is_finding ? station->requests_open + 1 : 1;
}

// Sends each unit its request, and waits for the answers. Units without a request, and those that do not answer, have
// no reply afterwards.
void exchange(Station *station, const Event &event, bool to_everybody = false)
{
    const int wait_ms = (station->plan.seconds * 3 / event.tries + event.extra_seconds) * 1000;
    request_number(station, event.number);
    for (auto &[mac, unit] : station->units) {
        unit.reply.reset();
        if (unit.is_silent)
            unit.request.reset();
    }
    for (int tries = 0; tries < event.tries && !all_answered(*station) && !gblStationStop; tries++) {
        std::vector<bool> is_told(station->ports.size());
        for (auto &[mac, unit] : station->units) {
            if (is_answered(unit) || !answer_expect(&unit) || (to_everybody && is_told[unit.port]))
                continue;
            is_told[unit.port] = true;
            message_send(station->ports[unit.port], to_everybody ? kEverybody : mac, event.number, station->request_id,
                         *unit.request);
        }
        const int64_t end = now_ms() + wait_ms;
        while (now_ms() < end && !all_answered(*station) && !gblStationStop)
            arrivals_take(station, end);
    }
    for (auto &[mac, unit] : station->units) {
        if (!is_answered(unit) && !gblStationStop) {
            unit.is_silent = true;
            fault_add(station, &unit, "no answer to " + unit.step);
        }
        unit.request.reset();
    }
}

// Names the step that all units are in.
void step_begin(Station *station, const std::string &step, Change change = Change::kStep)
{
    for (auto &[mac, unit] : station->units)
        if (!unit.is_silent)
            unit.step = step;
    report_show(station, nullptr, change);
}

uint32_t number_at(const std::string &reply, size_t at)
{
    uint32_t number = UINT32_MAX;
    if (reply.size() >= at + sizeof(number))
        memcpy(&number, reply.data() + at, sizeof(number));
    return ntohl(number);
}

// A step whose reply is a result alone.
void results_expect(Station *station, const Event &event, bool to_everybody = false)
{
    exchange(station, event, to_everybody);
    for (auto &[mac, unit] : station->units)
        if (unit.reply && number_at(*unit.reply, 0) != 0)
            fault_add(station, &unit, unit.step + " refused");
}

// How a command has ended on a unit. What it left for the station stands behind the serial.
CommandDone command_done(const std::string &command, const std::string &reply)
{
    constexpr size_t kStatusAt = 4, kOutputAt = 8 + 64;
    const uint32_t status = number_at(reply, 0) == 0 ? number_at(reply, kStatusAt) : UINT32_MAX;
    std::string output = reply.size() > kOutputAt ? reply.substr(kOutputAt) : "";
    output.resize(std::min(output.find('\0'), output.size()));
    return {command, static_cast<int>(status), output};
}

// A step that has each unit run its command. `judge` is told how it has ended.
template <typename Judge> void commands_run(Station *station, bool to_everybody, Judge judge)
{
    std::map<Mac, std::string> commands;
    for (const auto &[mac, unit] : station->units)
        commands[mac] = unit.request.value_or("");
    exchange(station, kOperation, to_everybody);
    for (auto &[mac, unit] : station->units)
        if (unit.reply)
            judge(&unit, command_done(commands[mac], *unit.reply));
}

void status_expect(Station *station, StationUnit *unit, const std::string &name, const CommandDone &done)
{
    if (done.status != 0)
        fault_add(station, unit, name + ": exit status " + std::to_string(done.status));
}

// The factory tool ends with 0 whatever comes of it; what it says is how it failed.
std::string tool_command(const std::string &words)
{
    return "mantool " + words + " >/tmp/manutil_command.output 2>&1";
}

std::string first_line(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

// The same for a command of the tool that is quiet when all is well.
void tool_expect(Station *station, const std::string &name)
{
    commands_run(station, false, [&](StationUnit *unit, const CommandDone &done) {
        if (!done.output.empty())
            fault_add(station, unit, name + ": " + first_line(done.output));
        else
            status_expect(station, unit, name, done);
    });
}

// The serial of a unit: the digits at the end count up, and get more only when they must.
std::string serial_count(std::string serial, size_t number)
{
    for (size_t at = serial.size(); number > 0; number /= 10) {
        if (at == 0 || serial[at - 1] < '0' || serial[at - 1] > '9')
            serial.insert(at++, 1, '0');
        number += static_cast<size_t>(serial[--at] - '0');
        serial[at] = static_cast<char>('0' + number % 10);
    }
    return serial;
}

Mac mac_count(const Mac &first, size_t number)
{
    Mac mac = first;
    for (size_t i = mac.size(); i-- > 0; number >>= 8) {
        number += mac[i];
        mac[i] = static_cast<uint8_t>(number);
    }
    return mac;
}

void identities_give(Station *station)
{
    size_t number = 0;
    for (auto &[mac, unit] : station->units) {
        if (unit.is_silent)
            continue;
        if (station->plan.first_mac)
            unit.first_mac = mac_count(*station->plan.first_mac, number * station->plan.macs_per_unit);
        if (!station->plan.first_serial.empty())
            unit.serial = serial_count(station->plan.first_serial, number);
        if (!station->plan.custom_serial.empty())
            unit.custom_serial = station->plan.custom_serial + unit.serial;
        number++;
    }
}

// The progress that a unit tells; empty when no test runs. Its hundredths come without a leading zero: "12.5%"
// is 12.05.
std::string progress_text(const std::string &reply)
{
    unsigned percent = 0, hundredths = 0; // a test that has just begun tells "0.0%", none "0%"
    if (reply.size() <= sizeof(uint32_t) ||
        sscanf(reply.c_str() + sizeof(uint32_t), "%3u.%2u%%", &percent, &hundredths) != 2)
        return "";
    char text[16];
    snprintf(text, sizeof(text), "%u.%02u%%", percent, hundredths);
    return text;
}

void memory_test(Station *station)
{
    step_begin(station, "memory test");
    if (!station->plan.memory_command.empty()) {
        for (auto &[mac, unit] : station->units)
            unit.request = station->plan.memory_command;
        commands_run(station, true, [&](StationUnit *unit, const CommandDone &done) {
            status_expect(station, unit, "memory test", done);
        });
    }
    // What a command has started shows itself within the time for an answer.
    const int64_t start_end = now_ms() + (station->plan.memory_command.empty() ? 0 : station->plan.seconds * 1000);
    int64_t stall_end = now_ms() + station->plan.stall_seconds * int64_t{1000};
    for (bool is_testing = true; is_testing && !gblStationStop;) {
        for (auto &[mac, unit] : station->units)
            unit.request = "";
        exchange(station, kMemory);
        is_testing = false;
        for (auto &[mac, unit] : station->units) {
            const std::string told = progress_text(unit.reply.value_or(""));
            if (told.empty()) {
                is_testing |= !unit.is_silent && unit.memory.empty() && now_ms() < start_end;
                continue;
            }
            is_testing = true;
            if (told == unit.memory)
                continue;
            unit.memory = told;
            stall_end = now_ms() + station->plan.stall_seconds * int64_t{1000};
            report_show(station, &unit);
        }
        if (now_ms() > stall_end)
            break; // the unit's flag tells what came of it
        if (is_testing)
            wait_for(station, kPoll_ms);
    }
}

void identities_write(Station *station)
{
    if (station->plan.first_mac) {
        step_begin(station, "address");
        for (auto &[mac, unit] : station->units)
            unit.request = std::string(unit.first_mac.begin(), unit.first_mac.end());
        results_expect(station, kMacSet);
    }
    if (!station->plan.first_serial.empty()) {
        step_begin(station, "serial");
        for (auto &[mac, unit] : station->units)
            unit.request = tool_command("-sn_set " + unit.serial);
        tool_expect(station, "serial");
    }
    if (!station->plan.custom_serial.empty()) {
        step_begin(station, "custom serial");
        for (auto &[mac, unit] : station->units)
            unit.request = unit.custom_serial;
        results_expect(station, kCustomSnSet);
    }
}

void group_commands(Station *station)
{
    if (!station->plan.action.empty()) {
        step_begin(station, "group action");
        for (auto &[mac, unit] : station->units)
            unit.request = station->plan.action;
        results_expect(station, kGroupAction, true);
    }
    for (const std::string &command : station->plan.commands) {
        step_begin(station, "command");
        for (auto &[mac, unit] : station->units)
            unit.request = command;
        commands_run(station, true, [&](StationUnit *unit, const CommandDone &done) {
            unit->commands.push_back(done);
            status_expect(station, unit, "command '" + command + "'", done);
        });
    }
}

// Calls `visit` with the name of each test: all flags but those that tell of a whole group, and the memory test's,
// which the memory test itself sets.
template <typename Visit> void tests_visit(Visit visit)
{
    for (const TestGroup &group : kTestGroupTable)
        for (size_t i = 1; i < group.names.size() && &group != &kTestGroupTable[kGroupProComm]; i++)
            if (strcmp(group.names[i], "PTB_MEMORY_TEST") != 0)
                visit(group.names[i]);
}

// Each test is one command: it runs the test and stores how it ended, so that a unit that is cut off in between has no
// result that it did not earn.
void tests_walk(Station *station)
{
    step_begin(station, "tests");
    tests_visit([station](const char *flag) {
        step_begin(station, flag, Change::kDetail);
        for (auto &[mac, unit] : station->units)
            unit.request = "if " + station->plan.test_command + " " + flag +
                           " >/dev/null 2>&1; then r=1; else r=2; fi; " +
                           tool_command(std::string("-test_flag_set ") + flag + " $r") + "; [ $r = 1 ]";
        commands_run(station, false, [=](StationUnit *unit, const CommandDone &done) {
            unit->tests[flag] = test_result_words(done.status == 0 ? kVenderPassed : kVenderFailed);
            if (!done.output.empty())
                fault_add(station, unit, std::string(flag) + ": " + first_line(done.output));
            else if (done.status != 0)
                fault_add(station, unit, std::string(flag) + " failed");
        });
    });
}

void report_judge(Station *station, StationUnit *unit)
{
    const auto expect = [=](const char *what, const std::string &told, const std::string &wanted) {
        if (told != wanted)
            fault_add(station, unit,
                      std::string(what) + " reads " + (told.empty() ? "nothing" : told) + ", not " + wanted);
    };
    if (station->plan.first_mac) {
        std::string wanted = mac_text(unit->first_mac);
        std::transform(wanted.begin(), wanted.end(), wanted.begin(),
                       [](char c) { return c >= 'a' ? c - 'a' + 'A' : c; });
        expect("address", unit->report.mac, wanted);
    }
    if (!unit->serial.empty())
        expect("serial", unit->report.serial, unit->serial);
    if (!station->plan.memory_command.empty())
        expect("PTB_MEMORY_TEST", unit->report.flags["PTB_MEMORY_TEST"], "Pass");
    for (const auto &[flag, words] : unit->tests)
        expect(flag.c_str(), unit->report.flags[flag], words);
}

// Reads each unit's record. With `is_judged` it is held against what it should be.
void records_read(Station *station, bool is_judged)
{
    step_begin(station, "record", is_judged ? Change::kStep : Change::kDetail);
    for (auto &[mac, unit] : station->units)
        unit.request = "";
    exchange(station, kFlagGet);
    for (auto &[mac, unit] : station->units) {
        if (!unit.reply)
            continue;
        unit.report = unit_report_parse(unit.reply->substr(std::min<size_t>(4, unit.reply->size())));
        if (number_at(*unit.reply, 0) != 0)
            fault_add(station, &unit, "record cannot be read");
        else if (is_judged)
            report_judge(station, &unit);
    }
}

// The units that have done all well so far are checked, and then show it by their LED.
void final_check(Station *station)
{
    step_begin(station, "final check");
    for (auto &[mac, unit] : station->units)
        if (unit.faults.empty())
            unit.request = station->plan.check;
    results_expect(station, kFinalCheck);
}

bool plan_is_empty(const Plan &plan)
{
    return plan.memory_command.empty() && !plan.first_mac && plan.first_serial.empty() && plan.custom_serial.empty() &&
           plan.action.empty() && plan.commands.empty() && plan.test_command.empty() && plan.check.empty();
}

} // namespace

size_t station_tests()
{
    size_t count = 0;
    tests_visit([&](const char *) { count++; });
    return count;
}

size_t station_find(Station *station)
{
    const Plan &plan = station->plan;
    station->is_finding = true;
    const int64_t end = now_ms() + plan.find_seconds * int64_t{1000};
    do { // asked again: a frame may be lost
        request_number(station, kManMemTestProgress);
        for (const StationPort &port : station->ports)
            message_send(port, kEverybody, kManMemTestProgress, station->request_id, "");
        wait_for(station, kPoll_ms); // to its end: there may be more than are expected
    } while (!gblStationStop && now_ms() < end && (plan.units == 0 || station->units.size() < plan.units));
    station->is_finding = false;
    for (auto &[mac, unit] : station->units)
        if (unit.is_double) {
            unit.faults.emplace_back("answers twice: two units with this address?");
            unit.is_silent = true; // what one is given, both would take
        }
    return station->units.size();
}

void station_run(Station *station)
{
    const Plan &plan = station->plan;
    identities_give(station);
    if (!plan.test_command.empty()) {
        step_begin(station, "begin");
        for (auto &[mac, unit] : station->units)
            unit.request = tool_command("-test_flag_set PTF_BEGIN 1");
        tool_expect(station, "begin");
    }
    memory_test(station);
    identities_write(station);
    group_commands(station);
    if (!plan.test_command.empty())
        tests_walk(station);
    records_read(station, true);
    if (!plan.test_command.empty()) {
        step_begin(station, "end");
        for (auto &[mac, unit] : station->units)
            unit.request =
                tool_command(std::string("-test_flag_set PTF_COMPLETE ") + (unit.faults.empty() ? "1" : "2"));
        tool_expect(station, "end");
        records_read(station, false);
    }
    if (!plan.check.empty())
        final_check(station);
    for (auto &[mac, unit] : station->units) {
        if (gblStationStop)
            unit.faults.emplace_back("stopped before the end");
        unit.step = "";
        unit.verdict = !unit.faults.empty()  ? Verdict::kFailed
                       : plan_is_empty(plan) ? Verdict::kSeen
                                             : Verdict::kPassed;
    }
    report_show(station, nullptr);
}

void station_listen(Station *station, int seconds)
{
    const int64_t end = now_ms() + seconds * int64_t{1000};
    while (!gblStationStop && (seconds == 0 || now_ms() < end))
        arrivals_take(station, seconds == 0 ? now_ms() + kPoll_ms : end);
}

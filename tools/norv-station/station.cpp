#include "tools/norv-station/station.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

#include "manutil/test_flags.h"
#include "tools/common/now_ms.h"
#include "tools/norv-station/exchange.h"
#include "tools/norv-station/report.h"

volatile bool gblStationStop;

namespace
{

constexpr Event kMacSet = {kManMacSet, 3};
constexpr Event kCustomSnSet = {kManCustomSnSet, 3};
constexpr Event kGroupAction = {kManGroupAction, 1, 60};
constexpr Event kOperation = {kManGroupOperation, 1};
constexpr Event kFlagGet = {kManTestFlagGet, 3};
constexpr Event kFinalCheck = {kManFinalCheck, 1, 60};
constexpr Event kMemory = {kManMemTestProgress, 3};

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
            wait_for(station, kPollMs);
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

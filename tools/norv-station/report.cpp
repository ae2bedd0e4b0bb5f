#include "tools/norv-station/report.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <json-c/json.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/common/text_clean.h"
#include "tools/common/text_json.h"

namespace
{

const char *verdict_words(Verdict verdict)
{
    switch (verdict) {
    case Verdict::kPassed:
        return "PASSED";
    case Verdict::kFailed:
        return "FAILED";
    case Verdict::kSeen:
        return "SEEN";
    case Verdict::kTesting:
        break;
    }
    return "...";
}

size_t flags_of(const StationUnit &unit, const char *words)
{
    return static_cast<size_t>(std::count_if(unit.report.flags.begin(), unit.report.flags.end(),
                                             [=](const auto &flag) { return flag.second == words; }));
}

std::string joined(const std::vector<std::string> &texts)
{
    std::string all;
    for (const std::string &text : texts)
        all += (all.empty() ? "" : "; ") + text;
    return all;
}

std::string live_line(size_t number, const Mac &mac, const StationUnit &unit)
{
    const std::string &serial = unit.serial.empty() ? unit.report.serial : unit.serial;
    char line[512];
    snprintf(line, sizeof(line), "%2zu  %s  %-14s %-7s memory %-6s  tests %2zu/%zu  %s", number, mac_text(mac).c_str(),
             serial.empty() ? "-" : serial.c_str(), verdict_words(unit.verdict),
             unit.memory.empty() ? "-" : unit.memory.c_str(), unit.tests.size(), station_tests(), unit.step.c_str());
    return text_clean(line + (unit.faults.empty() ? "" : "  " + joined(unit.faults)));
}

bool complain(const std::string &path)
{
    fprintf(stderr, "norv-station: %s: %s\n", path.c_str(), strerror(errno));
    return false;
}

std::string csv_line(const std::vector<std::string> &fields)
{
    std::string line;
    for (const std::string &field : fields) {
        line += line.empty() ? "\"" : ",\"";
        for (const char c : field)
            line += c == '"' ? std::string("\"\"") : std::string(1, c);
        line += '"';
    }
    return line + "\n";
}

// Writes or adds to a file of the folder. False, told.
bool file_write(const Station &station, const char *name, const char *mode, const std::string &text)
{
    const std::string path = station.out_folder + "/" + name;
    UniqueFile file(fopen(path.c_str(), mode));
    if (!file)
        return complain(path);
    const bool is_put = fputs(text.c_str(), file.get()) >= 0;
    return (fclose(file.release()) == 0 && is_put) || complain(path);
}

void text_add(json_object *object, const char *key, const std::string &text)
{
    json_object_object_add(object, key, text_json(text));
}

json_object *unit_json(const Mac &mac, const StationUnit &unit)
{
    json_object *object = json_object_new_object(), *commands = json_object_new_array();
    json_object *flags = json_object_new_object(), *faults = json_object_new_array();
    text_add(object, "mac", mac_text(mac));
    text_add(object, "serial_given", unit.serial);
    text_add(object, "custom_serial_given", unit.custom_serial);
    text_add(object, "serial", unit.report.serial);
    text_add(object, "first_mac", unit.report.mac);
    text_add(object, "memory", unit.memory);
    text_add(object, "verdict", verdict_words(unit.verdict));
    for (const auto &[name, words] : unit.report.flags)
        text_add(flags, name.c_str(), words);
    for (const std::string &fault : unit.faults)
        json_object_array_add(faults, text_json(fault));
    for (const CommandDone &done : unit.commands) {
        json_object *command = json_object_new_object();
        text_add(command, "command", done.command);
        json_object_object_add(command, "status", json_object_new_int(done.status));
        text_add(command, "output", done.output);
        json_object_array_add(commands, command);
    }
    json_object_object_add(object, "commands", commands);
    json_object_object_add(object, "flags", flags);
    json_object_object_add(object, "faults", faults);
    return object;
}

json_object *log_json(const LogLineHeard &line)
{
    json_object *object = json_object_new_object(), *records = json_object_new_object();
    text_add(object, "time", line.time);
    text_add(object, "mac", mac_text(line.from));
    for (const auto &[key, value] : line.records)
        text_add(records, text_clean(key).c_str(), value);
    json_object_object_add(object, "records", records);
    return object;
}

// Of standard output; without rows when it is no terminal.
winsize terminal_size()
{
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size : winsize{};
}

// Cuts a line that the terminal would break in two: lines are counted to be written over.
std::string line_cut(const std::string &line)
{
    const winsize size = terminal_size();
    return size.ws_col > 0 ? line.substr(0, size.ws_col) : line;
}

void lines_erase(Station *station)
{
    if (station->lines_shown > 0)
        printf("\033[%zuA\033[J", station->lines_shown); // up, and clear from there
    station->lines_shown = 0;
}

} // namespace

void report_show(Station *station, const StationUnit *changed, Change change)
{
    const bool is_terminal = terminal_size().ws_row > station->units.size(); // else lines would roll away
    if (is_terminal)
        lines_erase(station);
    else if (change == Change::kDetail)
        return;
    size_t number = 0;
    for (const auto &[mac, unit] : station->units) {
        number++;
        if (!is_terminal && changed != nullptr && changed != &unit)
            continue;
        puts(line_cut(live_line(number, mac, unit)).c_str());
        station->lines_shown += is_terminal ? 1 : 0;
    }
    fflush(stdout);
}

bool report_log(Station *station, const LogLineHeard &line)
{
    static const std::vector<std::string> kTitles = {"time",    "mac",     "serial", "vendor_mac", "label",
                                                     "counter", "session", "model",  "text"};
    static constexpr const char *kKeys[] = {"SN", "MAC", "LABEL", "COUNTER", "SESSION", "MODEL", "LOG"};
    const size_t shown = station->lines_shown;
    lines_erase(station);
    std::vector<std::string> fields = {line.time, mac_text(line.from)};
    for (const char *key : kKeys)
        fields.push_back(text_clean(log_line_value(line.records, key)));
    printf("log %s %s SN=%s %s/%s: %s\n", fields[0].c_str(), fields[1].c_str(), fields[2].c_str(), fields[6].c_str(),
           fields[5].c_str(), fields[8].c_str());
    fflush(stdout);
    if (shown > 0)
        report_show(station, nullptr);
    if (station->out_folder.empty())
        return true;
    const bool is_new = access((station->out_folder + "/log.csv").c_str(), F_OK) != 0;
    return file_write(*station, "log.csv", "ae", (is_new ? csv_line(kTitles) : "") + csv_line(fields));
}

bool report_write(const Station &station)
{
    if (station.out_folder.empty())
        return true;
    std::string csv = csv_line({"unit", "mac", "serial_given", "serial", "first_mac", "custom_serial", "memory",
                                "passed", "failed", "not_tested", "verdict", "faults"});
    json_object *report = json_object_new_object(), *units = json_object_new_array(), *log = json_object_new_array();
    size_t number = 0;
    for (const auto &[mac, unit] : station.units) {
        csv += csv_line({std::to_string(++number), mac_text(mac), unit.serial, unit.report.serial, unit.report.mac,
                         unit.custom_serial, unit.memory, std::to_string(flags_of(unit, "Pass")),
                         std::to_string(flags_of(unit, "Fail")), std::to_string(flags_of(unit, "NotTest")),
                         verdict_words(unit.verdict), joined(unit.faults)});
        json_object_array_add(units, unit_json(mac, unit));
    }
    for (const LogLineHeard &line : station.log)
        json_object_array_add(log, log_json(line));
    json_object_object_add(report, "units", units);
    json_object_object_add(report, "log", log);
    const std::string json = json_object_to_json_string_ext(report, JSON_C_TO_STRING_PRETTY);
    json_object_put(report);
    const bool has_csv = file_write(station, "units.csv", "we", csv);
    return file_write(station, "units.json", "we", json + "\n") && has_csv;
}

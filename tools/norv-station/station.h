// The test station: finds the units of a segment and takes them through the factory's steps, all at once.
//
// It speaks with the manufacturing daemon of each unit, whose messages are those of net/udpd.h. What the daemon has no
// event for, it has a shell of the unit run. A unit that fails a step is taken on through the others, so that its
// report is whole; one that does not answer is left alone.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "net/udpd_frame.h"
#include "tools/norv-station/log_line.h"
#include "tools/norv-station/segment.h"
#include "tools/norv-station/unit_report.h"

// What is to be done. An empty text leaves its step out, so that without any the station only looks.
struct Plan {
    size_t units = 0; // there must be so many; 0: whoever answers within `find_seconds`
    int find_seconds = 3;
    int seconds = 10;             // for an answer, three times over
    int stall_seconds = 60;       // a memory test that does not get on for so long is over
    std::string memory_command;   // starts the memory test
    std::optional<Mac> first_mac; // of the first unit
    unsigned macs_per_unit = 4;
    std::string first_serial;  // its digits at the end count up
    std::string custom_serial; // the serial follows it
    std::string action;        // "first command,second command", once per start of a unit
    std::vector<std::string> commands;
    std::string test_command; // tests one thing; the flag's name follows it
    std::string check;        // "unique,build number" for the final check
};

// What a group command left on a unit.
struct CommandDone {
    std::string command;
    int status; // exit status; -1: not run
    std::string output;
};

enum class Verdict { kTesting, kSeen, kPassed, kFailed };

struct StationUnit {
    size_t port = 0;
    // What it is given.
    Mac first_mac{};
    std::string serial{}, custom_serial{};
    // How far it is.
    Verdict verdict = Verdict::kTesting;
    std::string step{}, memory{};
    std::map<std::string, std::string> tests{}; // how each has ended, in the words of the report
    std::vector<CommandDone> commands{};
    std::vector<std::string> faults{};
    bool is_silent = false;
    bool is_double = false;   // an answer came twice: two units speak from one address
    uint16_t answered_id = 0; // while units are looked for: the last request that it has answered
    UnitReport report{};
    // The message under way.
    std::optional<std::string> request{};
    std::optional<std::string> reply{};
    UDPD_HANDLE handle{};
    UdpdMessage message{};

    StationUnit() = default;
    StationUnit(const StationUnit &) = delete;
    StationUnit &operator=(const StationUnit &) = delete;
    ~StationUnit() { udpd_message_free(&message); }
};

struct LogLineHeard {
    std::string time; // of this station
    Mac from;
    LogRecords records;
};

struct Station {
    Plan plan{};
    std::vector<StationPort> ports{};
    std::map<Mac, StationUnit> units{}; // by the address that they speak from
    std::vector<LogLineHeard> log{};
    std::string out_folder{}; // for the reports; empty: none
    uint16_t request_id = 0;
    int requests_open = 0; // how many of the last ones are still answered
    int request_event = 0;
    bool is_finding = false;
    bool is_log_lost = false; // a line could not be stored
    size_t lines_shown = 0;   // of the units, on a terminal
};

// Set by a signal: every step ends, and what there is is reported.
extern volatile bool gblStationStop;

// Finds the units. Returns how many; all of them are known when it is not the number that there must be, too.
size_t station_find(Station *station);
// Takes all units through the plan, to a verdict each: one where there is anything to be done.
void station_run(Station *station);
// Only listens for log lines, until a signal or, above 0, so many seconds.
void station_listen(Station *station, int seconds);

// How many tests a unit is taken through.
[[nodiscard]] size_t station_tests();

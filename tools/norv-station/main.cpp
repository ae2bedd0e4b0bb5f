// Plays the factory's test station.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lib/text.h"
#include "tools/norv-station/report.h"
#include "tools/norv-station/virtual_units.h"

namespace
{

constexpr char kUsage[] =
    "usage: norv-station --units N [--fail NUMBER[:KIND]] [plan] [common options]\n"
    "       norv-station --interface NAME [--expect N] [plan] [common options]\n"
    "       norv-station --interface NAME --listen [--time SECONDS] [--out FOLDER]\n"
    "\n"
    "  --units N       N virtual units, the real daemon in each; the plan below is filled in for them\n"
    "  --fail N[:KIND] unit N has a fault: test (default), memory or silent; may be given several times\n"
    "  --interface NAME  units on a segment of this machine; may be given several times; needs cap_net_raw\n"
    "  --expect N      how many units there must be; with another number of them nothing is done\n"
    "  --listen        only take the log lines that units send\n"
    "\n"
    "Plan; what is not given is not done:\n"
    "  --memory COMMAND   starts the memory test on each unit\n"
    "  --mac ADDRESS      first address of the first unit\n"
    "  --macs N           addresses that each unit is given: 4\n"
    "  --serial TEXT      serial of the first unit; the digits at its end count up\n"
    "  --custom TEXT      custom serial: this, and the serial behind it\n"
    "  --action A,B       group action: command A, then B; a unit does one per start\n"
    "  --command COMMAND  group command; may be given several times\n"
    "  --test COMMAND     runs one test on a unit; the test's name follows it; exit status 0 is a pass\n"
    "  --check UNIQUE,BUILD  what the final check holds the unit against; a unit takes one per start\n"
    "\n"
    "Common options:\n"
    "  --out FOLDER    reports: units.csv, units.json, log.csv\n"
    "  --seconds N     how long to wait for an answer, three times: 10\n"
    "  --stall N       seconds without progress that end a memory test: 60\n"
    "  --help          print this text\n"
    "\n"
    "Exit status: 0 all units passed; 1 one failed; 2 wrong use, or no segment, or no reports; 3 units are missing\n"
    "or too many; 77 this kernel gives no namespaces for virtual units.\n";

enum ExitStatus : int { kAllPassed = 0, kOneFailed = 1, kWrongUse = 2, kWrongNumber = 3 };

struct Options {
    Station station{};
    size_t virtual_units = 0;
    std::map<size_t, std::string> faults{};
    std::vector<std::string> interfaces{};
    bool is_listening = false;
    int listen_seconds = 0;
};

int misuse(const std::string &what)
{
    fprintf(stderr, "norv-station: %s; norv-station --help tells more\n", what.c_str());
    return kWrongUse;
}

bool number_take(const char *text, int least, int most, int *number)
{
    return text_number(text, number) && *number >= least && *number <= most;
}

bool count_take(const char *text, size_t *count)
{
    constexpr int kUnitsMax = 200;
    int number = 0;
    const bool is_good = number_take(text, 1, kUnitsMax, &number);
    *count = static_cast<size_t>(number);
    return is_good;
}

bool fault_take(const std::string &text, Options *options)
{
    const size_t colon = text.find(':');
    const std::string fault = colon == text.npos ? "test" : text.substr(colon + 1);
    size_t number = 0;
    if (!count_take(text.substr(0, colon).c_str(), &number) || !virtual_fault_is_known(fault))
        return false;
    options->faults[number] = fault;
    return true;
}

// Stands in a shell line, so it is what a unit takes anyway.
bool serial_take(const char *text, std::string *serial)
{
    *serial = text;
    return !serial->empty() && serial->size() < 32 &&
           strspn(text, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                        "0123456789-_") == serial->size();
}

bool text_take(const char *text, std::string *out)
{
    *out = text;
    return !out->empty();
}

// Takes one option. False when its value is no good.
bool option_take(int option, const char *value, Options *options)
{
    Plan &plan = options->station.plan;
    int number = 0;
    Mac mac;
    switch (option) {
    case 'u':
        return count_take(value, &options->virtual_units);
    case 'f':
        return fault_take(value, options);
    case 'i':
        options->interfaces.emplace_back(value);
        return true;
    case 'e':
        return count_take(value, &plan.units);
    case 'l':
        return options->is_listening = true;
    case 'T':
        return number_take(value, 1, 1'000'000, &options->listen_seconds);
    case 'M':
        return text_take(value, &plan.memory_command);
    case 'm':
        if (!mac_parse(value, &mac) || (mac[0] & 1) != 0) // a group's is no unit's
            return false;
        plan.first_mac = mac;
        return true;
    case 'n':
        if (!number_take(value, 1, 16, &number))
            return false;
        plan.macs_per_unit = static_cast<unsigned>(number);
        return true;
    case 's':
        return serial_take(value, &plan.first_serial) && isdigit(static_cast<unsigned char>(plan.first_serial.back()));
    case 'c':
        return serial_take(value, &plan.custom_serial);
    case 'a':
        return text_take(value, &plan.action) && plan.action.find(',') != plan.action.npos;
    case 'C':
        plan.commands.emplace_back(value);
        return true;
    case 't':
        return text_take(value, &plan.test_command);
    case 'k':
        return text_take(value, &plan.check);
    case 'o':
        return text_take(value, &options->station.out_folder);
    case 'w':
        return number_take(value, 1, 3600, &plan.seconds);
    case 'S':
        return number_take(value, 1, 86400, &plan.stall_seconds);
    default:
        return false;
    }
}

constexpr option kOptions[] = {
    {"units", required_argument, nullptr, 'u'},
    {"fail", required_argument, nullptr, 'f'},
    {"interface", required_argument, nullptr, 'i'},
    {"expect", required_argument, nullptr, 'e'},
    {"listen", no_argument, nullptr, 'l'},
    {"time", required_argument, nullptr, 'T'},
    {"memory", required_argument, nullptr, 'M'},
    {"mac", required_argument, nullptr, 'm'},
    {"macs", required_argument, nullptr, 'n'},
    {"serial", required_argument, nullptr, 's'},
    {"custom", required_argument, nullptr, 'c'},
    {"action", required_argument, nullptr, 'a'},
    {"command", required_argument, nullptr, 'C'},
    {"test", required_argument, nullptr, 't'},
    {"check", required_argument, nullptr, 'k'},
    {"out", required_argument, nullptr, 'o'},
    {"seconds", required_argument, nullptr, 'w'},
    {"stall", required_argument, nullptr, 'S'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

void stop(int)
{
    gblStationStop = true;
}

bool folder_make(const std::string &path)
{
    if (path.empty() || mkdir(path.c_str(), 0777) == 0)
        return true;
    if (errno == EEXIST && access((path + "/").c_str(), W_OK | X_OK) == 0)
        return true;
    fprintf(stderr, "norv-station: %s: %s\n", path.c_str(), strerror(errno));
    return false;
}

bool ports_open(const std::vector<std::string> &names, std::vector<StationPort> *ports)
{
    for (const std::string &name : names) {
        StationPort port;
        if (!port_open(name, &port))
            return false;
        ports->push_back(std::move(port));
    }
    return true;
}

int run(Options *options)
{
    Station &station = options->station;
    const size_t found = station_find(&station);
    const size_t wanted = station.plan.units != 0 ? station.plan.units : std::max<size_t>(found, 1);
    if (found == wanted)
        station_run(&station);
    else
        report_show(&station, nullptr);
    if (!report_write(station) || station.is_log_lost)
        return kWrongUse;
    if (found != wanted) {
        if (found == 0)
            fprintf(stderr, "norv-station: nobody answered\n");
        else // numbered, they would be given what is another's
            fprintf(stderr, "norv-station: %zu units answered, not %zu: nothing was done\n", found, wanted);
        return kWrongNumber;
    }
    size_t passed = 0, failed = 0;
    for (const auto &[mac, unit] : station.units) {
        passed += unit.verdict == Verdict::kPassed ? 1 : 0;
        failed += unit.verdict == Verdict::kFailed ? 1 : 0;
    }
    printf("%zu units: %zu passed, %zu failed\n", found, passed, failed);
    return failed == 0 ? kAllPassed : kOneFailed;
}

} // namespace

int main(int argc, char *argv[])
{
    Options options;
    for (int option, index = 0; (option = getopt_long(argc, argv, "", kOptions, &index)) != -1;) {
        if (option == 'h')
            return fputs(kUsage, stdout) < 0 ? kWrongUse : kAllPassed;
        if (option == '?')
            return misuse("wrong use"); // it has told what
        if (!option_take(option, optarg, &options))
            return misuse(std::string("--") + kOptions[index].name + " does not take '" + optarg + "'");
    }
    if (optind != argc)
        return misuse(std::string("'") + argv[optind] + "' is no option");
    if ((options.virtual_units == 0) == options.interfaces.empty())
        return misuse("either --units or --interface is needed");
    if (!options.faults.empty() && options.faults.rbegin()->first > options.virtual_units)
        return misuse("--fail tells of no virtual unit");
    struct sigaction action = {};
    action.sa_handler = stop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    VirtualUnits units;
    Station &station = options.station;
    if (!folder_make(station.out_folder) || !ports_open(options.interfaces, &station.ports))
        return kWrongUse;
    if (station.plan.units > 0)
        station.plan.find_seconds = std::max(station.plan.find_seconds, station.plan.seconds);
    if (options.virtual_units > 0) {
        if (!units.start(options.virtual_units, options.faults, &station.ports))
            return kWrongUse;
        VirtualUnits::plan_fill(&station.plan);
        station.plan.units = options.virtual_units;
        station.plan.find_seconds = 60;
    }
    if (options.is_listening) {
        station_listen(&station, options.listen_seconds);
        return station.is_log_lost ? kWrongUse : kAllPassed;
    }
    const int status = run(&options);
    // What goes wrong with a box itself is told by the framework that boxes are made for.
    return testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed() && status == kAllPassed ? kOneFailed
                                                                                                   : status;
}

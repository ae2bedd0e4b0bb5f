#include "tools/norv-station/exchange.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "tools/common/now_ms.h"
#include "tools/norv-station/report.h"

namespace
{

constexpr uint16_t kDaemonPort = 1122, kLogPort = 1123, kLogEvent = 1;
constexpr char kDaemonName[8] = {'m', 'a', 'n', 'u', 't', 'i', 'l', 'd'};
constexpr char kLogName[8] = {'n', 'o', 'r', 'v', 'm', 'a', 'n', 'l'}; // as much as fits of norvmanlogd

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

} // namespace

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

void exchange(Station *station, const Event &event, bool to_everybody)
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

size_t station_find(Station *station)
{
    const Plan &plan = station->plan;
    station->is_finding = true;
    const int64_t end = now_ms() + plan.find_seconds * int64_t{1000};
    do { // asked again: a frame may be lost
        request_number(station, kManMemTestProgress);
        for (const StationPort &port : station->ports)
            message_send(port, kEverybody, kManMemTestProgress, station->request_id, "");
        wait_for(station, kPollMs); // to its end: there may be more than are expected
    } while (!gblStationStop && now_ms() < end && (plan.units == 0 || station->units.size() < plan.units));
    station->is_finding = false;
    for (auto &[mac, unit] : station->units)
        if (unit.is_double) {
            unit.faults.emplace_back("answers twice: two units with this address?");
            unit.is_silent = true; // what one is given, both would take
        }
    return station->units.size();
}

void station_listen(Station *station, int seconds)
{
    const int64_t end = now_ms() + seconds * int64_t{1000};
    while (!gblStationStop && (seconds == 0 || now_ms() < end))
        arrivals_take(station, seconds == 0 ? now_ms() + kPollMs : end);
}

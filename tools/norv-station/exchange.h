// The conversation with the units, with all of them at once.
#pragma once

#include <string>

#include "applets/manutild.h"
#include "tools/norv-station/station.h"

inline constexpr int kPollMs = 500;

struct Event {
    ManEvent number;
    int tries;             // 1 for what must not be done twice: the time to answer is the same
    int extra_seconds = 0; // that it may take beyond an answer
};

// Sends each unit its request, and waits for the answers. Units without a request, and those that do not answer, have
// no reply afterwards.
void exchange(Station *station, const Event &event, bool to_everybody = false);

// Takes what comes, for so long.
void wait_for(Station *station, int milliseconds);

// Notes a fault of a unit, and shows it.
void fault_add(Station *station, StationUnit *unit, const std::string &fault);

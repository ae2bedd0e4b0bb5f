// What people and programs see of a run: a live line per unit, log lines, and the files in the station's folder.
#pragma once

#include "tools/norv-station/station.h"

enum class Change { kStep, kDetail };

// Shows the units' lines anew, in place, on a terminal. Elsewhere prints the line of `changed`, or all when it is NULL,
// but none for a mere detail.
void report_show(Station *station, const StationUnit *changed, Change change = Change::kStep);

// Prints a log line and adds it to log.csv. False, told, when it cannot be stored.
[[nodiscard]] bool report_log(Station *station, const LogLineHeard &line);

// Writes units.csv and units.json. False, told.
[[nodiscard]] bool report_write(const Station &station);

// Expansion units on eSATA ports. Whoever watches those ports leaves a file for each unit: /tmp/eunitinfo_*, with the
// key EUnitDisks, the names of its disks with commas between.
#pragma once

#include <cstddef>

// Writes the names of the disks in all units, with commas between. Returns 0, also without any unit; -1 with 0x0d00 or
// 0x0100.
[[nodiscard]] int expansion_unit_disks_get(char *names, size_t size);

// Whether a list of names as above holds this name.
[[nodiscard]] bool expansion_unit_list_holds(const char *names, const char *disk_name);

// Expansion units on eSATA ports. Whoever watches those ports leaves a file for each unit: /tmp/eunitinfo_*, with the
// keys EUnitModel, its model with a number behind a '-', and EUnitDisks, the names of its disks with commas between.
// Blanks around a name and "/dev/" in front of it do not count.
#pragma once

#include <cstddef>

struct ExpansionUnitPlace {
    char model[64]; // without the number: "NX4R"
    int unit;       // the number behind the model's last '-', 0 without one
    int position;   // of the disk in the unit, from 1
};

// Writes the names of the disks in all units, with commas between. Returns 0, also without any unit; -1 with 0x0d00,
// 0x0100 or 0x0200.
[[nodiscard]] int expansion_unit_disks_get(char *names, size_t size);

// Place of a name in a list as above, from 1; 0 when it is not there.
[[nodiscard]] int expansion_unit_list_position(const char *names, const char *disk_name);

// The first unit that lists a disk. Returns 1; 0 when none does; -1 with 0x0d00 or 0x0200.
[[nodiscard]] int expansion_unit_place_get(const char *disk_name, ExpansionUnitPlace *place);

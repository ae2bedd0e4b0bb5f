// What replies tell of the appliance itself.
#pragma once

#include <cstddef>
#include <cstdint>

// The firmware that runs, or the one on the disks.
struct FhostRelease {
    uint32_t build, small_fix;
    char version[64]; // empty when it is not known, logged
};

// Reads /etc.defaults/VERSION; the version is its productversion, or majorversion and minorversion with a dot between.
void fhost_release_read(FhostRelease *release);
void fhost_release_read_parts(FhostRelease *release);

// Reads the serial number without white space around it. Returns its length; -1 when there is none to read.
inline constexpr size_t kFhostSerialRoom = 64;
[[nodiscard]] int fhost_serial_read(char (&serial)[kFhostSerialRoom]);

// The short form of a serial number of `length` characters; NULL, logged, for a length that has none.
[[nodiscard]] const char *fhost_serial_short(const char *serial, int length);

// An IPv4 address in network order; 0 for text that is none.
[[nodiscard]] uint32_t fhost_address_parse(const char *text);

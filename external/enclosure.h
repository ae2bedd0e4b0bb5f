// SAS enclosures as the kernel's enclosure class shows them: /sys/class/enclosure/<id>/<slot>/. The id is the SCSI
// address of the enclosure's own device ("0:0:12:0").
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/list.h"

struct Enclosure {
    char id[32];
    char host[32];     // "host0"
    char expander[32]; // "expander-0:0"; empty when it hangs on the host itself
    char vendor[9], model[17], revision[5];
    int model_id; // of the product table; 0 when the table does not know it
};

// A place for a disk in an enclosure.
struct EnclosureSlot {
    char enclosure[32];
    char folder[256]; // "/sys/class/enclosure/0:0:12:0/Slot 04"
    int number;       // as the enclosure counts, -1 when it does not tell
};

// The configuration page of the SCSI Enclosure Services (SES-3, 6.1.2), of its primary enclosure.
struct SesConfiguration {
    uint64_t logical_id;
    char vendor[9], model[17], revision[5];
    int disk_slots; // elements of the types device slot and array device slot, over all subenclosures
};

enum EnclosureLamp : int { kLampFault = 0, kLampLocate = 1 };

// Pushes the ids of all enclosures, sorted. Returns 0, also without any; -1 with 0x0200.
[[nodiscard]] int enclosure_enum(PNLIBSZLIST *ids);

// What the kernel knows of an enclosure. Returns 0; -1 with 0x0d00, 0x0700 when there is no such enclosure.
[[nodiscard]] int enclosure_get(const char *id, Enclosure *enclosure);

// The enclosure's serial number: its unit serial number page, or its logical id in hexadecimal where it has none.
// Returns 0; -1 with 0x0d00, 0x0700 without its device, 0x0900, 0x8100 when it does not answer, 0x0100.
[[nodiscard]] int enclosure_serial_get(const char *id, char *serial, size_t size);

// Asks the enclosure for its configuration page. Results as above, 0x4000 for a page that makes no sense.
[[nodiscard]] int enclosure_configuration_get(const char *id, SesConfiguration *configuration);

// Reads a configuration page of `size` bytes. Returns 0; -1 with 0x4000 when it is cut short or contradicts itself.
[[nodiscard]] int ses_configuration_parse(const uint8_t *page, size_t size, SesConfiguration *configuration);

// The slot that holds a disk, by its kernel name. Returns 0; -1 with 0x0d00, 0x0700 when no slot holds it.
[[nodiscard]] int enclosure_slot_find(const char *disk_name, EnclosureSlot *slot);

// Switches one lamp of the slot that holds a disk. Returns 0; -1 as enclosure_slot_find, 0x0b00 when the lamp could not
// be set.
[[nodiscard]] int enclosure_disk_lamp_set(const char *disk_name, EnclosureLamp lamp, bool is_on);

// Switches the fault and locate lamps of all slots on or off. Returns 0; -1 with 0x0700 when there is no enclosure,
// 0x0b00 when a lamp could not be set.
[[nodiscard]] int enclosure_disk_led_set_host(int is_on);

// What the units of the disk port tool share.
#pragma once

#include "external/expansion_unit.h"

// What an option prints: a text from malloc, NULL while it is empty. The tool's main frees it.
struct ResultText {
    char *text = nullptr;
    int size = 0; // bytes allocated
};

// Appends a piece of at most 127 bytes. Returns 0; -1 with 0x0200, or 0xfb00 when it is longer.
[[nodiscard]] int result_add(ResultText *result, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The expansion unit with a disk, or with any disk behind a port: "sdja", "sdj". Results of expansion_unit_place_get.
[[nodiscard]] int unit_find(const char *disk, ExpansionUnitPlace *place);

// The options that have a unit of their own: `args` are the option and as many words behind it as it takes. Each adds
// what it prints and returns 0, or the tool's exit status.
int option_ata_to_device(char *args[], ResultText *result);
int option_device_info(char *args[], ResultText *result);
int option_port_thaw_list(char *args[], ResultText *result);
int option_incompatible_disk_list(char *args[], ResultText *result);
int option_invalid_disk_list(char *args[], ResultText *result);

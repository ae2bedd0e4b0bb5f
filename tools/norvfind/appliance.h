// An appliance, as its replies tell of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "findhost/packet.h"

struct Appliance {
    FHOST_RECORD record;
    // What replies carry beside the record; a number is -1, a text empty, when it is not told.
    int64_t result_code = -1, progress = -1, migration = -1, old_build = -1, raid = -1;
    std::string old_version, old_model;
    bool is_sealed = false; // the reply came sealed to this client
    std::string interface;  // of this machine, on which it came
    uint32_t source_ip = 0; // of the frame, network order
};

// Takes the payload of a datagram apart, opening it with this process's key when it is sealed. False when it is no
// reply of an appliance.
[[nodiscard]] bool appliance_parse(const uint8_t *datagram, size_t length, Appliance *out);

// A status in words.
[[nodiscard]] const char *status_words(uint32_t status);
// A result code in words.
[[nodiscard]] const char *result_words(int64_t code);

// An address in dotted form.
[[nodiscard]] std::string address_text(uint32_t address);

void appliances_print_table(const std::vector<Appliance> &appliances);
void appliances_print_json(const std::vector<Appliance> &appliances);
// All that is known of one, a line each.
void appliance_print(const Appliance &appliance);

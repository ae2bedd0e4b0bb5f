// A device tree with the chip of an adapter card and a disk below it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "product.h"

inline constexpr char kAdapterChip[] = "/sys/devices/pci0000:00/0000:00:1c.0";

// The files of a card's chip, as path and content; `value` is what its configuration tells.
inline std::vector<std::pair<std::string, std::string>> adapter_chip_files(const ProductAdapterCard &card,
                                                                           uint32_t value)
{
    const auto hex = [](unsigned id) {
        char text[16];
        snprintf(text, sizeof(text), "0x%04x\n", id);
        return std::string(text);
    };
    std::string config(card.config.offset + 4, '\0');
    for (unsigned i = 0; i < 4; i++)
        config[card.config.offset + i] = static_cast<char>(value << card.config.shift >> 8 * i & 0xff);
    const std::string chip = kAdapterChip;
    return {{chip + "/vendor", hex(card.vendor)},
            {chip + "/device", hex(card.device)},
            {chip + "/subsystem_vendor", hex(card.subsystem_vendor)},
            {chip + "/subsystem_device", hex(card.subsystem_device)},
            {chip + "/config", config}};
}

// Folder of a device so many levels below the chip; 0 is the chip.
inline std::string adapter_device(int levels, const std::string &name)
{
    std::string path = kAdapterChip;
    for (int level = 1; level < levels; level++)
        path += "/level" + std::to_string(level);
    return levels == 0 ? path : path + "/" + name;
}

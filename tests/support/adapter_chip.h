// A device tree with the chip of an adapter card and a disk below it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "product.h"

inline constexpr char kAdapterChip[] = "/sys/devices/pci0000:00/0000:00:1c.0";

// The files by which the kernel tells a device's numbers, as path and content.
inline std::vector<std::pair<std::string, std::string>> pci_number_files(const std::string &folder, unsigned vendor,
                                                                         unsigned device, unsigned subsystem_vendor,
                                                                         unsigned subsystem_device)
{
    const auto hex = [](unsigned id) {
        char text[16];
        snprintf(text, sizeof(text), "0x%04x\n", id);
        return std::string(text);
    };
    return {{folder + "/vendor", hex(vendor)},
            {folder + "/device", hex(device)},
            {folder + "/subsystem_vendor", hex(subsystem_vendor)},
            {folder + "/subsystem_device", hex(subsystem_device)}};
}

// The files of a card's chip; `value` is what its configuration tells.
inline std::vector<std::pair<std::string, std::string>> adapter_chip_files(const ProductAdapterCard &card,
                                                                           uint32_t value)
{
    std::string config(card.config.offset + 4, '\0');
    for (unsigned i = 0; i < 4; i++)
        config[card.config.offset + i] = static_cast<char>(value << card.config.shift >> 8 * i & 0xff);
    auto files = pci_number_files(kAdapterChip, card.vendor, card.device, card.subsystem_vendor, card.subsystem_device);
    files.emplace_back(std::string(kAdapterChip) + "/config", config);
    return files;
}

// Folder of a device so many levels below the chip; 0 is the chip.
inline std::string adapter_device(int levels, const std::string &name)
{
    std::string path = kAdapterChip;
    for (int level = 1; level < levels; level++)
        path += "/level" + std::to_string(level);
    return levels == 0 ? path : path + "/" + name;
}

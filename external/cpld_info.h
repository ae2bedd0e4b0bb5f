// What the board tells of its model.
#pragma once

// The description of a model, as NUL-terminated texts.
struct NORVCfgInfo {
    char unique[64], hostname[64], supportraid[64], maxlanport[64], maxdisks[64], upnpmodelname[64];
    char mass_production_group[64];
};

// Asks the board for its model. The CPLD values are read and name no model here, so the record comes back with empty
// texts. Returns 0; -1 with 0x0d00 for NULL (logged), 0x0900 without the device, 0x8100 when a request fails.
[[nodiscard]] int get_cpld_info(NORVCfgInfo *out);

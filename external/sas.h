// Where a disk hangs in a SAS domain, from the kernel's SAS transport classes. Which phy is which bay is known by a
// model id: that of the enclosure behind an expander, or that of the host adapter whose phys lead straight to bays. The
// ids stand in the product tables.
#pragma once

struct SasPlace {
    char host[32];     // "host0"
    char expander[32]; // the one next to the disk, "expander-0:0"; empty when the disk hangs on the host itself
    char phy[32];      // of that expander or host, the first of its port: "phy-0:0:12"
};

// Finds the place of a disk by its kernel name, "/dev/" allowed. A device-mapper name has no place of its own: resolve
// it first (mapped_disk_parent_get). Returns 0; -1 with 0x0d00, 0x0700 when it is no SAS disk.
[[nodiscard]] int sas_place_get(const char *disk, SasPlace *place);

// Number of a phy, /sys/class/sas_phy/<phy>/phy_identifier, from 0. -1 with 0x0d00, 0x0900 or 0x4000.
[[nodiscard]] int sas_phy_id_get(const char *phy);

// Model id of a host adapter with direct phys, from 1; 0 when the table does not know it; -1 with 0x0d00, 0x0700.
[[nodiscard]] int sas_host_model_id_get(const char *host);

// Model id of the enclosure behind an expander, from 1; 0 when the table does not know it; -1 with 0x0d00, or 0x0700
// while its enclosure device has not come up.
[[nodiscard]] int sas_expander_model_id_get(const char *expander);

// The phy number that a model's layout gives to a physical one: from it the disk number follows the same way for all
// models. A number that the model's table does not name stays as it is.
[[nodiscard]] int sas_phy_map(int model_id, int phy);

// Bays of a model; 0 when the table does not know it.
[[nodiscard]] int sas_model_max_disks_get(int model_id);

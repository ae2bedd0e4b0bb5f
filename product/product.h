// What a deployment supplies: model names, device ids, fixed words. These are neutral example values; a deployment
// points the build at a header of its own with -DNORV_PRODUCT_DIR=<folder>, which must define every name below.
// Nothing else in the tree holds such a value.
#pragma once

#include <cstddef>
#include <cstdint>

// `unique` of the one platform with fixed built-in storage, also called the high-density series.
inline constexpr char kProductHdSeriesUnique[] = "norv_x86_hd60";

// Models whose M.2 adapter is card 0.
inline constexpr const char *kProductM2Card0Models[] = {
    "NS0801", "NS0802", "NS0803", "NS0804", "NS0805", "NS0806", "NS0807", "NS0808",
};
// Models whose M.2 adapter is card 1 or 2.
inline constexpr const char *kProductM2Card12Models[] = {"NS0201", "NS0202"};
// The model with onboard M.2 slots on ports 5 and 6.
inline constexpr char kProductOnboardM2Model[] = "NS0702";

// The expansion unit whose disk letters run backwards.
inline constexpr char kProductReversedExpansionUnit[] = "NX4R";

// Adapter cards that carry M.2 slots or network ports, told apart by a PCI chip on them. The order counts: the
// first row that matches names the card.
struct ProductAdapterCard {
    int card_id;
    int disk_levels; // folders to climb from an nvc or sata disk's to the chip that tells the card; -1: has none
    int nvme_levels; // the same from an NVMe disk's
    int eth_levels;  // the same from a network port's device
    uint16_t vendor, device, subsystem_vendor, subsystem_device; // a subsystem vendor of 0: not looked at
    struct {                                                     // else a test on the four bytes of configuration
        uint32_t offset, mask, shift, value;                     // space at `offset`; mask 0: none
    } config;
};
inline constexpr ProductAdapterCard kProductAdapterCards[] = {
    {0, 6, -1, -1, 0x1b4b, 0x9235, 0x1b4b, 0x1001, {0, 0, 0, 0}}, // the SATA controller itself
    {1, 8, 5, 2, 0x10b5, 0x8717, 0x1b4b, 0x1002, {0, 0, 0, 0}},   // the switch above the controllers
    {2, 8, 5, 2, 0x10b5, 0x8717, 0x1b4b, 0x1003, {0, 0, 0, 0}},
    {3, -1, 5, 2, 0x12d8, 0x2608, 0, 0, {0x40, 0xff, 0, 0x03}},
    {5, -1, -1, 0, 0x1d6a, 0x07b1, 0, 0, {0x44, 0xf0, 4, 0x05}}, // the port itself
};

// Models of the special case in the test whether a disk's system can be recovered.
inline constexpr const char *kProductRecoverableModels[] = {
    "NSR01", "NSR02", "NSR03", "NSR04", "NSR05", "NSR06", "NSR07", "NSR08", "NSR09",
};

// `unique` of the model whose network port at 0000:00:1c.2 belongs to the out-of-band controller.
inline constexpr char kProductOutOfBandUnique[] = "norv_x86_oob1";

// The model, as its hardware version tells before "-j", that norv_led_mask_on sends no mask request.
inline constexpr char kProductNoLedMaskModel[] = "NS-LED1";

// What the hardware of a model lacks, by number: 4 tells the processor's temperature, 7 lets its fans be set.
struct ProductMissingCapability {
    const char *unique; // of the model description
    int capability;
};
inline constexpr ProductMissingCapability kProductMissingCapabilities[] = {
    {"norv_x86_fanless", 7},
    {"norv_x86_nosensor", 4},
    {"norv_x86_nosensor", 7},
};

// The byte by which the micro-controller tells that a fan has failed.
inline constexpr char kProductMicropFanFailed = 'F';

// Serial numbers of these lengths have a short form: their last kProductShortSerialLength characters.
inline constexpr size_t kProductLongSerialLengths[] = {13, 16};
inline constexpr size_t kProductShortSerialLength = 10;

// The words before and after the year of the banner line.
inline constexpr char kProductBannerLead[] = "Copyright (c) 2003-";
inline constexpr char kProductBannerTail[] = " Norvessa, Inc. All rights reserved.";
static_assert(sizeof(kProductBannerLead) - 1 == 19 && sizeof(kProductBannerTail) - 1 == 36);

// The notice above the factory tool's usage text.
inline constexpr char kProductFactoryNotice[] = "Norvessa factory tool. Not for use outside production and service.";

// Where the update feed is asked when the configuration names no server.
inline constexpr char kProductUpdateEndpoint[] = "https://update.norvessa.example/autoupdate/genRSS.php";

// The out-of-band controller: the OEM commands that read and clear its request word, and the LAN channel whose address
// it tells.
inline constexpr uint8_t kProductOobNetFn = 0x30;
inline constexpr uint8_t kProductOobRequestGet = 0x70;
inline constexpr uint8_t kProductOobRequestClear = 0x71;
inline constexpr uint8_t kProductOobLanChannel = 1;

// SAS models: enclosures by the vendor and model that their own device tells, with their bays. The ids 1 to 30 each
// belong to one of two sets, appliances and expansion units, which the naming of SAS disks knows.
struct ProductEnclosure {
    int model_id;
    const char *vendor, *model;
    int max_disks;
};
inline constexpr ProductEnclosure kProductEnclosures[] = {
    {1, "NORVESSA", "NS1200S", 12}, {4, "NORVESSA", "NS1600S", 16}, {5, "NORVESSA", "NS6000S", 60},
    {2, "NORVESSA", "NX1200S", 12}, {3, "NORVESSA", "NX2400S", 24},
};

// Host adapters whose phys lead straight to the bays of the appliance.
struct ProductSasHost {
    int model_id;
    uint16_t vendor, device, subsystem_vendor, subsystem_device;
    int max_disks;
};
inline constexpr ProductSasHost kProductSasHosts[] = {
    {7, 0x1000, 0x0097, 0x1b4b, 0x2001, 8},
};

// Where the phys of a model are not numbered as its bays are. A disk's number is its phy less 6.
struct ProductPhyRange {
    int model_id;
    int first, count, becomes; // `first` becomes `becomes`, and so on
};
inline constexpr ProductPhyRange kProductPhyRanges[] = {
    {7, 0, 8, 7}, // a host's phys count from 0
    {3, 0, 12, 7},
    {3, 24, 12, 19}, // the second half of the bays hangs on the second port group
};

// Onboard places of NVMe disks: the PCI port that leads to each. An empty model stands for every other one.
struct ProductNvmePort {
    const char *unique;  // of the model description
    const char *address; // of the port
    int kind;            // 1 not permitted, 2 U.2 bay, 3 M.2 cache slot, 4 M.2 bay
    int index;           // number of the disk, from 1
};
inline constexpr ProductNvmePort kProductNvmePorts[] = {
    {"norv_x86_nv4", "0000:00:01.1", 2, 1},
    {"norv_x86_nv4", "0000:00:01.2", 2, 2},
    {"norv_x86_nv4", "0000:00:01.3", 2, 3},
    {"norv_x86_nv4", "0000:00:01.4", 2, 4},
    {"norv_x86_nv4", "0000:00:1d.0", 3, 1},
    {"norv_x86_m2b", "0000:00:02.1", 4, 1},
    {"norv_x86_m2b", "0000:00:02.2", 4, 2},
    {"norv_x86_m2b", "0000:00:1d.0", 1, 1},
    {"", "0000:00:1d.0", 3, 1},
    {"", "0000:00:1d.4", 3, 2},
};

// Where the databases of disk rules are fetched when the model description names no server. HTTPS only.
inline constexpr char kProductDiskRuleServer[] = "https://update.norvessa.example/disk-compatibility";

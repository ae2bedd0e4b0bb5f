#include "external/disk_identity.h"

#include <cerrno>
#include <gtest/gtest.h>

#include "external/enclosure.h"
#include "lib/report.h"
#include "tests/external/disk_answers.h"
#include "tests/support/device_answers.h"
#include "tests/support/outcome.h"
#include "tests/support/private_root.h"

namespace
{

using std::string_literals::operator""s;

constexpr char kDevice[] = "null"; // any node that opens; the answers come from the tables

const std::string kSataInquiry = scsi_inquiry_data(0, "ATA", "TRUNCATED MODEL", "0001");
const std::string kSasInquiry = scsi_inquiry_data(0, "NORVDISK", "S8000", "AB01");
// Commands: standard inquiry, identify device, SMART read data and return status.
const std::string kInquiry = "\x12\x00\x00"s, kSerialPage = "\x12\x01\x80"s, kIdentify = "\x85...........\0.\xec"s;
const std::string kSmartData = "\x85...\xd0"s, kSmartStatus = "\x85...\xda"s;

std::string shown(const DiskIdentity &disk)
{
    return std::to_string(static_cast<int>(disk.bus)) + "|" + disk.vendor + "|" + disk.model + "|" + disk.firmware +
           "|" + disk.serial + "|" + std::to_string(disk.sectors);
}

std::string shown(const DiskSmart &smart)
{
    return std::to_string(static_cast<int>(smart.verdict)) + " " + std::to_string(smart.temperature_c) + " " +
           std::to_string(smart.power_on_hours) + " " + std::to_string(smart.bad_sectors) + " " +
           std::to_string(smart.used_percent);
}

// The sense data with the registers of SMART RETURN STATUS.
std::string registers(char mid, char high)
{
    return "\x72\x01\x00\x1d\0\0\0\x0e\x09\x0c\0\0\0\0\0\0\0"s + mid + "\0"s + high + "\0\x50"s;
}

std::string log_page(char page, const std::string &parameters)
{
    return std::string{page, 0, 0, static_cast<char>(parameters.size())} + parameters;
}

TEST(DiskIdentity, IsAskedOverEachBus)
{
    std::string flawed = ata_identity("S", "F", "M");
    flawed[100] = 1; // the checksum no longer holds
    const struct {
        std::vector<DeviceAnswer> answers;
        const char *expected; // NULL: no identity
    } cases[] = {
        {{{kInquiry, kSataInquiry}, {kIdentify, ata_identity("  SER 1", "FW\x01 2", "NORV-4T \xc4 DISK")}},
         "1||NORV-4T ? DISK|FW? 2|SER 1|7814037168"},
        {{{kInquiry, kSataInquiry}, {kIdentify, flawed}}, nullptr},
        {{{kInquiry, kSataInquiry}, {kIdentify, ata_identity("S", "F", "M").substr(0, 256)}}, nullptr},
        {{{kInquiry, kSasInquiry}, {kSerialPage, "\0\x80\0\x05 Z123behind"s}}, "2|NORVDISK|S8000|AB01|Z123|7814037168"},
        {{{kInquiry, scsi_inquiry_data(0x0d, "NORVESSA", "NX2400S", "0102")}}, nullptr}, // no disk
        {{{.command = "\x12"s, .error = EIO}}, nullptr},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(&row - cases);
        const DeviceAnswers device(row.answers, 4000787030016);
        DiskIdentity disk;
        EXPECT_EQ(outcome(disk_identity_get, kDevice, &disk),
                  row.expected == nullptr ? (Outcome{-1, kErrDiskIdentify}) : (Outcome{0}));
        EXPECT_EQ(shown(disk), row.expected == nullptr ? "0|||||0" : row.expected);
    }
}

TEST(DiskSmart, IsAskedOverEachBus)
{
    const std::string attributes =
        ata_attributes({{5, {3, 1, 0, 0}}, {9, {0x10, 0x27, 0, 0}}, {190, {31, 0, 0, 0}}, {194, {33, 20, 45, 0}}});
    std::string flawed = attributes;
    flawed[20] = 1;
    const std::string defects = "\0\x0d\0\x18"s;
    const struct {
        std::vector<DeviceAnswer> answers;
        const char *expected; // NULL: no answer
    } cases[] = {
        {{{kInquiry, kSataInquiry}, {kSmartData, attributes}, {kSmartStatus, "", registers('\x4f', '\xc2')}},
         "1 33 10000 259 -1"},
        {{{kInquiry, kSataInquiry}, {kSmartData, flawed}, {kSmartStatus, "", registers('\xf4', '\x2c')}},
         "2 -1 -1 -1 -1"},
        {{{kInquiry, kSataInquiry}, {kSmartData, ata_attributes({{190, {31, 0, 0, 0}}})}}, "0 31 -1 -1 -1"},
        {{{kInquiry, kSataInquiry},
          {kSmartStatus, "", "\x70\0\1\0\x50\0\0\x0a\0\0\xf4\x2c\0\x1d\0\0\0\0"s}}, // the fixed format
         "2 -1 -1 -1 -1"},
        {{{kInquiry, kSataInquiry}, {kSmartStatus, "", registers('\0', '\0')}}, nullptr},
        {{{kInquiry, kSasInquiry},
          {"\x4d.\x4d"s, log_page(0x0d, "\0\0\x03\x02\0\x24\0\x01\x03\x02\0\x44"s)},
          {"\x4d.\x51"s, log_page(0x11, "\0\x01\x03\x04\0\0\0\x66"s)},
          {"\x4d.\x55"s, log_page(0x15, "\0\0\x03\x0c\0\0\x02\x58\0\0\0\0\0\0\0\0"s)},
          {"\x4d.\x6f"s, log_page(0x2f, "\0\0\x03\x04\x5d\x10\x24\0"s)},
          {"\x37", defects}},
         "2 36 10 3 102"},
        {{{kInquiry, kSasInquiry}, {"\x4d.\x6f"s, log_page(0x2f, "\0\0\x03\x40\0\0\x24\0"s)}}, nullptr}, // cut
        {{{kInquiry, kSasInquiry}, {"\x4d"s, log_page(0x0c, "\0\0\x03\x02\0\x24"s)}}, nullptr},          // another page
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(&row - cases);
        const DeviceAnswers device(row.answers);
        DiskSmart smart;
        EXPECT_EQ(disk_smart_get(kDevice, &smart), row.expected == nullptr ? -1 : 0);
        if (row.expected != nullptr) {
            EXPECT_EQ(shown(smart), row.expected);
        }
    }
}

// What needs a node of the right name.
TEST(DiskIdentity, OfDevicesByTheirNodes)
{
    PrivateRoot root;
    root.write("/dev/nvme0n1", "");
    root.write("/dev/sg3", "");
    root.write("/sys/class/enclosure/0:0:24:0/device/scsi_generic/sg3/dev", "21:3\n");
    root.run([] {
        std::string log(512, '\0'), good = "\0\x45\x01\x64\x0a\x07"s;
        log[128] = 100;
        log.replace(160, 8, "\xff\xff\xff\xff\xff\xff\xff\xff");
        for (const auto &[head, smart_expected] : {std::pair(good, "1 52 100 9223372036854775807 7"),
                                                   {"\4" + good.substr(1), "2 52 100 9223372036854775807 7"},
                                                   {std::string(6, '\0'), nullptr}}) { // never filled
            log.replace(0, 6, head);
            const DeviceAnswers device({{"\x06\x01", nvme_controller("SER9", "NORV NV1", "1.0")}, {"\x02\x02", log}},
                                       1024);
            DiskIdentity disk;
            DiskSmart smart;
            EXPECT_EQ(disk_identity_get("/dev/nvme0n1", &disk), 0);
            EXPECT_EQ(shown(disk), "3||NORV NV1|1.0|SER9|2");
            EXPECT_EQ(disk_smart_get("nvme0n1", &smart), smart_expected != nullptr ? 0 : -1);
            EXPECT_TRUE(smart_expected == nullptr || shown(smart) == smart_expected) << shown(smart);
        }
        DiskIdentity disk;
        EXPECT_EQ(disk_identity_get("/dev/nvme77n1", &disk), -1); // no node
        const DeviceAnswer page = {"\x1c\x01\x01", ses_configuration("\x17\x0c")};
        const DeviceAnswer serial_page = {kSerialPage, "\x0d\x80\0\x04"s + "E123"};
        const struct {
            std::vector<DeviceAnswer> answers;
            const char *serial; // NULL: a failure
        } cases[] = {{{serial_page, page}, "E123"}, {{page}, "5001020304050607"}, {{}, nullptr}};
        for (const auto &row : cases) {
            const DeviceAnswers device(row.answers);
            char serial[20] = "";
            EXPECT_EQ(enclosure_serial_get("0:0:24:0", serial, sizeof(serial)), row.serial == nullptr ? -1 : 0);
            EXPECT_STREQ(serial, row.serial == nullptr ? "" : row.serial);
            EXPECT_EQ(enclosure_serial_get("0:0:24:0", serial, 4), -1);
        }
        const DeviceAnswers device({page});
        SesConfiguration configuration;
        EXPECT_EQ(enclosure_configuration_get("0:0:24:0", &configuration), 0);
        EXPECT_EQ(configuration.disk_slots, 12);
    });
}

TEST(SesConfiguration, IsReadWithinItsBounds)
{
    const std::string good = ses_configuration("\x17\x18\x02\x04\x01\x02"); // 24 + 2 slots, 4 power supplies
    SesConfiguration configuration;
    const auto parse = [&configuration](const std::string &page) {
        return ses_configuration_parse(reinterpret_cast<const std::uint8_t *>(page.data()), page.size(),
                                       &configuration);
    };
    ASSERT_EQ(parse(good), 0);
    EXPECT_EQ(configuration.logical_id, 0x5001020304050607U);
    EXPECT_STREQ(configuration.vendor, "NORVESSA");
    EXPECT_STREQ(configuration.model, "NX2400S");
    EXPECT_STREQ(configuration.revision, "0102");
    EXPECT_EQ(configuration.disk_slots, 26);
    EXPECT_EQ(parse(good + "padding"), 0);
    for (size_t size = 0; size < good.size(); size++)
        EXPECT_EQ(parse(good.substr(0, size)), -1) << size;
    const struct {
        size_t at;
        char value;
    } flaws[] = {{0, 2}, {1, 1}, {3, 12}, {8 + 2, 4}, {8 + 3, 35}, {8 + 3, '\xff'}};
    for (const auto &[at, value] : flaws) {
        std::string page = good;
        page[at] = value;
        EXPECT_EQ(parse(page), -1) << at;
    }
}

} // namespace

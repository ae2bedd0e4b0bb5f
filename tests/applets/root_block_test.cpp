// norvstgcore on disks of all kinds: what it writes, where it does not, and what it says when a disk fails.
#include <cerrno>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <vector>

#include "tests/storage/root_block_bytes.h"
#include "tests/support/sandbox.h"

namespace
{

constexpr size_t kDiskBytes = 4096 * 512;
constexpr size_t kHeaderAt = 256000, kBodyAt = 262144, kBackupHeaderAt = kDiskBytes - 512000,
                 kBackupBodyAt = kDiskBytes - 505856;

const std::string &kPrimaryHeader = kHandHeader;
const std::string kBackupHeader = kHandHeader.substr(0, 72) + std::string("\0\x18\x48\0", 4); // 0x184800: kBackupBodyAt

std::string fresh_body(char capability)
{
    return std::string(103, '\0') + capability;
}

// A machine with the disk sda and one partition on it, or none when it has no size.
struct Machine {
    Sandbox box;

    explicit Machine(uint64_t start = 0, uint64_t sectors = 0)
    {
        box.file("/etc.defaults/norvinfo.conf", "supportraid=\"no\"\ninternalportcfg=\"3\"\nusbportcfg=\"10\"\n");
        box.device("/dev/sda", kDiskBytes);
        const std::string head = "major minor  #blocks  name\n\n   8 0 2048 sda\n";
        if (sectors == 0) {
            box.file("/proc/partitions", head);
            return;
        }
        box.device("/dev/sda1", sectors * 512);
        box.file("/proc/partitions", head + "   8 1 1024 sda1\n   8 2 1024 sda2\n"); // sda2 has no device: passed over
        box.program("/sbin/sfdisk",
                    {{.args = "-l -uS -N1 /dev/sda",
                      .output = "/dev/sda1 " + std::to_string(start) + " " + std::to_string(sectors) + " 83\nmore\n"}});
    }
    Result update(const std::string &capability, const char *disk = "/dev/sda")
    {
        return box.run({"norvstgcore", "--update-capability", disk, "--capability", capability});
    }
    std::string answer(const char *disk = "/dev/sda")
    {
        const Result result = box.run({"norvstgcore", "--is-compatible-disk", disk});
        EXPECT_EQ(result.exit_status, 0);
        return result.out;
    }
    // The disk's bytes at a place, as many as `like` has.
    std::string at(size_t offset, const std::string &like) const
    {
        return box.read_file("/dev/sda").substr(offset, like.size());
    }
    void disk_write(size_t offset, const std::string &bytes)
    {
        box.file("/dev/sda", box.read_file("/dev/sda").replace(offset, bytes.size(), bytes));
    }
};

TEST(RootBlockRole, WritesBothCopies)
{
    Machine machine;
    Result result = machine.update("2", "/dev/sda5"); // of the whole disk
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(machine.at(kHeaderAt, kPrimaryHeader), kPrimaryHeader);
    EXPECT_EQ(machine.at(kBodyAt, fresh_body(2)), fresh_body(2));
    EXPECT_EQ(machine.at(kBackupHeaderAt, kBackupHeader), kBackupHeader);
    EXPECT_EQ(machine.at(kBackupBodyAt, fresh_body(2)), fresh_body(2));
    EXPECT_EQ(machine.answer("sda"), "no\n");

    // What a block carries survives the update of its capability.
    const std::string body = std::string("\0\0\0\x2a", 4) + std::string(92, '\1') + "\1\2\3\4" + std::string(4, '\0');
    machine.disk_write(kBodyAt, body);
    EXPECT_EQ(machine.answer(), "yes\n");
    EXPECT_EQ(machine.update("7fffffff").exit_status, 0);
    const std::string flags_are_one("\0\0\0\1", 4);
    std::string updated = body.substr(0, 100) + "\x7f\xff\xff\xff";
    updated.replace(4, 4, flags_are_one).replace(92, 4, flags_are_one);
    EXPECT_EQ(machine.at(kBodyAt, updated), updated);
    EXPECT_EQ(machine.at(kBackupBodyAt, updated), updated);
    EXPECT_EQ(machine.answer(), "no\n");
}

TEST(RootBlockRole, Compatible)
{
    static constexpr const char *kCases[][3] = {// the answers of the two kinds of system
                                                {"0", "yes\n", "yes\n"},
                                                {"1", "yes\n", "no\n"},
                                                {"0x2", "no\n", "yes\n"},
                                                {"3", "no\n", "no\n"}};
    Machine machine;
    EXPECT_EQ(machine.answer(), "not found\n");
    for (const auto &[capability, shared, isolated] : kCases) {
        ASSERT_EQ(machine.update(capability).exit_status, 0);
        for (const auto &[key, answer] : {std::pair("", shared), {"no", shared}, {"Yes", isolated}}) {
            machine.box.file("/etc.defaults/norvinfo.conf", std::string("root_on_isolated_disk=\"") + key + "\"\n");
            EXPECT_EQ(machine.answer(), answer) << capability << " " << key;
        }
    }
    EXPECT_EQ(machine.update("80000000").exit_status, 255); // negative
    machine.box.remove("/proc/partitions");
    EXPECT_EQ(machine.answer(), "not found\n");
    EXPECT_EQ(machine.answer("/dev/none"), "error\n");
}

// Which copies find room: before the first partition with 500 sectors to spare, or behind the last one.
TEST(RootBlockRole, Places)
{
    const std::vector<std::string> primary_invalid = {
        "log warning root_block_set.cpp:* Invalid offset 262144 on /dev/sda with primary root block.",
        "log err root_block_set.cpp:* Fail to set primary root block on /dev/sda[0xD900 root_block_set.cpp:*]"};
    const std::vector<std::string> backup_taken = {
        "log warning is_disk_offset_avail.cpp:* The offset 1585152 of /dev/sda is already been used, so we should not "
        "use backup root block at it."};
    static constexpr struct {
        uint64_t start, sectors;
        bool primary, backup;
    } kCases[] = {
        {2048, 1047, true, true},                         // the backup header's sector is 3096, one behind the end
        {2048, 1048, true, false},                        // directly at the end
        {2047, 1, false, true},                           // one sector before a modern start
        {63, 4000, false, false},  {63, 448, true, true}, // the end is sector 511, the primary body's is 512
        {63, 449, false, true},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(std::to_string(row.start) + " " + std::to_string(row.sectors));
        Machine machine(row.start, row.sectors);
        const Result result = machine.update("1");
        EXPECT_EQ(result.exit_status, row.primary ? 0 : 255);
        EXPECT_EQ(machine.at(kBodyAt, fresh_body(1)) == fresh_body(1), row.primary);
        EXPECT_EQ(machine.at(kBackupHeaderAt, kBackupHeader) == kBackupHeader, row.primary && row.backup);
        const auto &refused = row.primary ? backup_taken : primary_invalid;
        EXPECT_EQ(bool(result.record.in_order(refused)), !row.primary || !row.backup) << result.log_text();
    }
}

// The image of a disk in a plain file, which has no size to ask for, has the primary copy alone.
TEST(RootBlockRole, ImageOfADisk)
{
    Machine machine;
    machine.box.request({.device = "/dev/sda", .request = BLKGETSIZE64, .error = ENOTTY});
    EXPECT_EQ(machine.answer(), "not found\n");
    EXPECT_EQ(machine.update("2").exit_status, 0);
    EXPECT_EQ(machine.answer(), "no\n");
    EXPECT_TRUE(machine.box.read_file("/dev/sda") == root_block_disk(2, kDiskBytes));
}

// The body is on the disk before the header is begun, each as one write; a partition whose place cannot be told may be
// anywhere.
TEST(RootBlockRole, WholeRecordsInOrder)
{
    Machine machine(2048, 2000);
    machine.box.device("/dev/sda2", 512);
    EXPECT_EQ(machine.update("1").exit_status, 255);
    machine.box.remove("/dev/sda2");
    for (const char *call : {"write", "fsync"})
        machine.box.call({.call = call, .args = "/dev/sda*", .real = true});
    const Result result = machine.update("1");
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.record.text("write *"), "write /dev/sda 104\nwrite /dev/sda 76\n");
    EXPECT_TRUE(
        result.record.in_order({"write /dev/sda 104", "fsync /dev/sda", "write /dev/sda 76", "fsync /dev/sda"}));
}

// A disk that takes or gives less than a record: the field that was cut is told, and what follows is left alone.
TEST(RootBlockRole, CutRecords)
{
    static constexpr char kInt[] = "Failed to norv-block int: ret = ",
                          kString[] = "Failed to norv-block string: ret = ";
    static constexpr struct {
        const char *call, *args;
        int moved; // bytes; -1: an error
        const char *kind, *part, *field;
    } kCases[] = {
        {"write", "/dev/sda 104", -1, kInt, "-1(total should be 4)",
         "Fail to write partition layout version [0] to [/dev/sda]. errno="},
        {"write", "/dev/sda 104", 4, kInt, "0(total should be 4)",
         "Fail to write blraidType [0] to [/dev/sda]. errno="},
        {"write", "/dev/sda 104", 31, kInt, "7(total should be 8)", "Fail to write size [0] to [/dev/sda]. errno="},
        {"write", "/dev/sda 104", 32, kInt, "0(total should be 8)", "Fail to write offset"},
        {"write", "/dev/sda 104", 80, kInt, "0(total should be 8)", "Fail to write size"},
        {"write", "/dev/sda 104", 91, kInt, "3(total should be 4)", "Fail to write fs id"},
        {"write", "/dev/sda 104", 100, kInt, "0(total should be 4)", "Fail to write root capability to [0x1]."},
        {"write", "/dev/sda 76", 10, kString, "10(total should be 64)", ""},
        {"read", "/dev/sda 76", 0, kString, "0(total should be 64)",
         "Failed to get op info for [/dev/sda][0x0A00 root_block_format.cpp:"},
        {"read", "/dev/sda 104", -1, kInt, "-1(total should be 4)", "Fail to read root block version"},
        {"read", "/dev/sda 104", 7, kInt, "3(total should be 4)", "Fail to read root block bl raid type"},
        {"read", "/dev/sda 104", 8, kInt, "0(total should be 8)", "Fail to read root block size"},
        {"read", "/dev/sda 104", 52, kInt, "0(total should be 8)", "Fail to read offset"},
        {"read", "/dev/sda 104", 60, kInt, "0(total should be 8)", "Fail to read size"},
        {"read", "/dev/sda 104", 88, kInt, "0(total should be 4)", "Fail to read fs id"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(std::string(row.call) + " " + row.args + " " + std::to_string(row.moved));
        Machine machine;
        const bool is_read = row.call == std::string_view("read");
        ASSERT_EQ(is_read ? machine.update("1").exit_status : 0, 0);
        machine.box.call({.call = row.call, .args = row.args, .error = row.moved < 0 ? EIO : 0, .result = row.moved});
        const Result result = machine.update("1");
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_TRUE(result.record.in_order({"log err root_block_format.cpp:* " + std::string(row.kind) + row.part + "*",
                                            "log err *" + std::string(row.field) + "*"}));
        EXPECT_EQ(is_read ? machine.answer() : "error\n", "error\n");
        const std::string kept = is_read ? kPrimaryHeader : std::string(kPrimaryHeader.size(), '\0');
        EXPECT_EQ(machine.at(kHeaderAt, kept), kept);
    }
}

} // namespace

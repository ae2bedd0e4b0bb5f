#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace
{

constexpr char kMagic[] = "NORVESSA_SUPER_BLOCK";
constexpr size_t kOffset = 512000, kOldOffset = 20480;

std::string big(std::uint32_t value)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(value >> shift);
    return text;
}
// A version 5 block with one cache, at its place on a disk.
std::string disk_image(size_t offset, std::uint32_t version, std::uint32_t type, std::uint32_t mode)
{
    std::string image(offset, '\0');
    image += std::string(kMagic) + std::string(44, '\0') + big(version) + big(type) + std::string(900, '\0');
    image += big(mode) + "cache" + std::string(251, '\0') + std::string(396, '\0');
    image += "NORV_06";
    image.resize(kOffset + 4096);
    return image;
}

struct DiskCase {
    const char *name = "sda";
    size_t offset = kOffset;
    std::uint32_t version = 5, type = 12, mode = 4;
    const char *rotational = "0\n"; // NULL: cannot be told
    const char *start = "2048\n";   // of partition 1; NULL: there is none
};

void disk_make(Sandbox &box, const DiskCase &disk)
{
    const std::string name = disk.name, folder = "/sys/block/" + name;
    box.file("/dev/" + name, disk_image(disk.offset, disk.version, disk.type, disk.mode));
    box.directory(folder);
    if (disk.rotational != nullptr)
        box.file(folder + "/queue/rotational", disk.rotational);
    if (disk.start != nullptr) {
        box.file(folder + "/" + name + "1/start", disk.start);
        box.file(folder + "/" + name + "1/size", "4980480\n");
    }
}

TEST(SsdCache, ListsDisks)
{
    const struct {
        std::vector<DiskCase> disks;
        int exit_status;
        const char *out;
        const char *logged = "";
        const char *conf = "";
    } kCases[] = {
        {{}, 0, ""},
        {{{.name = "sdc"}, {}, {.name = "sdb", .rotational = "1\n"}}, 0, "1 3"},
        {{{.rotational = nullptr, .start = "8192\n"}}, 0, "1"}, // an SSD unless it says no
        {{{.mode = 1}, {.name = "sdb", .mode = 5}, {.name = "sdc", .mode = 2}, {.name = "sdd", .mode = 3}}, 0, "1 2"},
        {{{.start = nullptr}}, 0, ""},
        {{{.offset = kOldOffset, .start = "2047\n"}, {.name = "sdb", .offset = kOldOffset}}, 0, "1"},
        {{{.name = "sda", .start = nullptr}, {.name = "sdd"}}, 0, ""}, // no array on the last bay's partition
        {{{}, {.name = "sdb", .version = 6}}, 255, "-1", "log err norvssdcache.cpp:* Failed to get norvblock on [sdb]"},
        {{{.start = "x\n"}}, 255, "-1", "log err norvssdcache.cpp:* Failed to get norvblock on [sda]"},
        {{{.name = "sdja"}, {.name = "sdjb", .version = 6}}, 0, "true", "", "support_dual_head=\"yes\"\n"},
        {{{.version = 6}}, 0, "", "", "support_install_only_dev=\"yes\"\n"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(std::to_string(&row - kCases));
        Sandbox box;
        box.file("/etc.defaults/norvinfo.conf",
                 std::string("internalportcfg=\"0xf\"\nusbportcfg=\"0x10\"\nesataportcfg=\"0x200\"\n") + row.conf);
        for (const DiskCase &disk : row.disks)
            disk_make(box, disk);
        box.program("/sbin/mdadm", {{.args = "-E /dev/sdd1", .exit_status = 1},
                                    {.args = "-E /dev/sd*1", .output = "     UUID : 1:2:3:4\n"}});
        const Result result =
            box.run({"norvssdcache", "--check"}, {.leaves = {"/tmp/.dualhead", "/tmp/.not.dualhead"}});
        EXPECT_EQ(result.exit_status, row.exit_status) << result.record.text();
        EXPECT_EQ(result.out, row.out) << result.record.text();
        EXPECT_EQ(result.record.count(row.logged), *row.logged != '\0') << result.record.text();
        for (const std::string &changed : result.files_changed)
            EXPECT_TRUE(changed.starts_with("+/tmp/.")) << changed;
        EXPECT_EQ(box.unexpected_calls(), "");
    }
}

} // namespace

// Patches of the builder under the real signature library: only a good one counts as good, and a hostile one leaves
// nothing outside.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/sandbox.h"
#include "tests/support/scratch_dir.h"

namespace
{

const std::string kLibraryName = "libnorvcodesign-ng-virtual-junior-wins.so.7";
const std::string kBuilder = NORV_BINARY_DIR "/tools/norv-patch/norv-patch";
const std::string kFirmwareMaker = NORV_SOURCE_DIR "/tools/sample-firmware/make_firmware.py";

// A folder as a patch is made of, and the keys that it is signed with.
class Patch : public testing::Test
{
  protected:
    Patch()
    {
        scratch.write("firmware/VERSION", "majorversion=6\nunique=\"norv_avoton_1817\"\n");
        scratch.write("firmware/hda1.tgz", std::string(300000, 'x'));
        scratch.write("firmware/updater", "#!/bin/sh\n");
        std::filesystem::permissions(scratch.path("firmware/updater"), std::filesystem::perms(0755));
        scratch.write("firmware/texts/enu", "hello\n");
    }
    // Makes a patch and returns its bytes' path.
    std::string make(const std::vector<std::string> &options)
    {
        std::vector<std::string> line = {
            kBuilder, "make", scratch.path("firmware"), scratch.path("a.pat"), "--keys", scratch.path("keys")};
        line.insert(line.end(), options.begin(), options.end());
        const Finished made = run_program(line);
        EXPECT_EQ(made.status, 0) << made.out;
        return scratch.path("a.pat");
    }
    [[nodiscard]] int verify(const std::string &patch) const
    {
        return run_program({kBuilder, "verify", patch, "--keys", scratch.path("keys")}).status;
    }
    void appliance_prepare(Sandbox &box) const
    {
        box.host_file("/usr/lib/" + kLibraryName, NORV_BINARY_DIR "/platform/codesign/" + kLibraryName);
        box.host_file("/usr/norv/etc/codesign/0.pem", scratch.path("keys/0.pem"), 0644);
        box.host_file("/usr/bin/cksum", NORV_BINARY_DIR "/platform/programs/cksum");
        box.directory("/upd");
    }
    ScratchDir scratch;
};

const std::vector<std::string> kFaults = {"unsigned",   "signature", "stranger", "truncated", "payload",
                                          "extra-file", "escape",    "absolute", "link",      "device"};

TEST_F(Patch, SignedArchive)
{
    const auto extract = [&](Sandbox &box) {
        return box.run({"norv_extract_system_patch", "/a.pat", "/upd"}, {.leaves = {"/upd/*"}});
    };
    {
        Sandbox box;
        const std::string patch = make({});
        EXPECT_EQ(verify(patch), 0);
        appliance_prepare(box);
        box.host_file("/a.pat", patch, 0644);
        EXPECT_EQ(extract(box).exit_status, 0);
        EXPECT_EQ(box.list("/upd"),
                  (std::vector<std::string>{"VERSION", "checksum.norv", "hda1.tgz", "texts", "updater"}));
        EXPECT_EQ(box.mode("/upd/updater"), 0755U);
        EXPECT_EQ(box.read_file("/upd/texts/enu"), "hello\n");
        EXPECT_EQ(box.run({"norvchecksum", "/upd"}).exit_status, 0);
        box.remove("/usr/norv/etc/codesign/0.pem"); // a key that is not there vouches for nothing
        const Result result = extract(box);
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_TRUE(result.record.in_order({"log info *[OPEN] End: [Bad Sig][14][*s]"}));
    }
    for (const std::string &fault : kFaults) {
        SCOPED_TRACE(fault);
        Sandbox box;
        const std::string patch = make({"--break", fault});
        EXPECT_EQ(verify(patch), 1);
        appliance_prepare(box);
        box.host_file("/a.pat", patch, 0644);
        box.remove("/tmp/escaped");
        EXPECT_EQ(extract(box).exit_status, 255);
        for (const char *path : {"/escaped", "/tmp/escaped", "/upd/link", "/upd/device", "/upd/extra"})
            EXPECT_FALSE(box.exists(path)) << path;
    }
}

TEST_F(Patch, OldForm)
{
    const auto check = [&](Sandbox &box) { return box.run({"norvcodesign", "/upd"}).exit_status; };
    const auto unpack = [&](Sandbox &box, const std::string &patch) {
        const ScratchDir folder;
        run_program({"/bin/tar", "xf", patch, "-C", folder.path()});
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder.path())) {
            const std::string path = "/upd/" + entry.path().lexically_relative(folder.path()).string();
            const auto mode = static_cast<mode_t>(entry.symlink_status().permissions());
            if (entry.is_symlink())
                box.symlink(path, std::filesystem::read_symlink(entry.path()).string());
            else if (entry.is_directory())
                box.directory(path, mode);
            else if (entry.is_regular_file())
                box.host_file(path, entry.path(), mode);
        }
    };
    Sandbox box;
    const std::string patch = make({"--old"});
    EXPECT_EQ(verify(patch), 0);
    appliance_prepare(box);
    unpack(box, patch);
    EXPECT_EQ(check(box), 0);
    EXPECT_EQ(box.run({"norvchecksum", "/upd"}).exit_status, 0);

    const std::string signature = box.read_file("/upd/Norvessa.sig");
    const struct {
        const char *what;
        std::function<void()> change, back;
    } kRows[] = {
        {"content", [&] { box.file("/upd/VERSION", "majorversion=7\n"); },
         [&] { box.file("/upd/VERSION", "majorversion=6\nunique=\"norv_avoton_1817\"\n"); }},
        {"a file more", [&] { box.file("/upd/more", ""); }, [&] { box.remove("/upd/more"); }},
        {"a link more", [&] { box.symlink("/upd/more", "VERSION"); }, [&] { box.remove("/upd/more"); }},
        {"another mode", [&] { box.file("/upd/updater", "#!/bin/sh\n", 0644); },
         [&] { box.file("/upd/updater", "#!/bin/sh\n", 0755); }},
        {"no signature", [&] { box.remove("/upd/Norvessa.sig"); }, [&] { box.file("/upd/Norvessa.sig", signature); }},
        {"half a signature", [&] { box.file("/upd/Norvessa.sig", signature.substr(0, signature.size() / 2)); },
         [&] { box.file("/upd/Norvessa.sig", signature); }},
        {"something behind it", [&] { box.file("/upd/Norvessa.sig", signature + "x"); },
         [&] { box.file("/upd/Norvessa.sig", signature); }},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        row.change();
        EXPECT_NE(check(box), 0);
        row.back();
        EXPECT_EQ(check(box), 0);
    }
    for (const char *fault : {"unsigned", "signature", "stranger", "payload", "extra-file", "link"}) {
        SCOPED_TRACE(fault);
        Sandbox other;
        const std::string bad = make({"--old", "--break", fault});
        EXPECT_EQ(verify(bad), 1);
        appliance_prepare(other);
        unpack(other, bad);
        EXPECT_NE(check(other), 0);
    }
}

// The sample firmware makes a good patch of either form, and the same bytes each time.
TEST_F(Patch, SampleFirmware)
{
    const auto bytes_of = [](const std::string &path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    std::string first[2];
    for (int round = 0; round < 2; round++) {
        std::filesystem::remove_all(scratch.path("firmware"));
        const Finished made =
            run_program({"/usr/bin/python3", kFirmwareMaker, scratch.path("firmware"), "unique=norv_x86_sample"});
        ASSERT_EQ(made.status, 0) << made.out;
        for (int form = 0; form < 2; form++) {
            const std::string patch = make(form == 0 ? std::vector<std::string>{} : std::vector<std::string>{"--old"});
            EXPECT_EQ(verify(patch), 0);
            EXPECT_TRUE(round == 0 || bytes_of(patch) == first[form]);
            first[form] = bytes_of(patch);
            EXPECT_GT(first[form].size(), 100000U);
        }
    }
}

TEST_F(Patch, ListFaults)
{
    for (const char *fault : {"checksum", "totals", "no-totals", "missing-file"}) {
        SCOPED_TRACE(fault);
        const std::string patch = make({"--break", fault});
        EXPECT_EQ(verify(patch), 1);
        Sandbox box;
        appliance_prepare(box);
        box.host_file("/a.pat", patch, 0644);
        EXPECT_EQ(box.run({"norv_extract_system_patch", "/a.pat", "/upd"}, {.leaves = {"/upd/*"}}).exit_status, 0);
        const int expected =
            std::string(fault) == "no-totals" ? 0 : 1; // what is not strict takes a list without totals
        EXPECT_EQ(box.run({"norvchecksum", "/upd"}).exit_status, expected);
    }
}

} // namespace

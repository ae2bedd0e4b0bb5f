// Patches of the builder under the real signature library: only a good one counts as good, and a hostile one leaves
// nothing outside.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/rows.h"
#include "tests/support/scratch_dir.h"

namespace
{

const std::string kLibraryName = "libnorvcodesign-ng-virtual-junior-wins.so.7";
const std::string kBuilder = NORV_BINARY_DIR "/tools/norv-patch/norv-patch";

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

TEST_F(Patch, SignedArchive)
{
    const auto extract = [&](Sandbox &box) {
        return box.run({"norv_extract_system_patch", "/a.pat", "/upd"}, {.leaves = {"/upd/*"}});
    };
    const struct {
        const char *fault; // "": none
        bool is_extracted, is_listed = false;
    } kRows[] = {
        {"", true, true},     {"unsigned", false},    {"signature", false},      {"stranger", false},
        {"truncated", false}, {"payload", false},     {"extra-file", false},     {"escape", false},
        {"absolute", false},  {"link", false},        {"device", false},         {"checksum", true},
        {"totals", true},     {"missing-file", true}, {"no-totals", true, true}, // what is not strict takes a list
                                                                                 // without totals
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.fault);
        const bool is_good = row.fault[0] == '\0';
        const std::string patch = is_good ? make({}) : make({"--break", row.fault});
        EXPECT_EQ(verify(patch), is_good ? 0 : 1);
        Sandbox box;
        appliance_prepare(box);
        box.host_file("/a.pat", patch, 0644);
        box.remove("/tmp/escaped");
        EXPECT_EQ(extract(box).exit_status, row.is_extracted ? 0 : 255);
        for (const char *path : {"/escaped", "/tmp/escaped", "/upd/link", "/upd/device", "/upd/extra"})
            EXPECT_FALSE(box.exists(path)) << path;
        if (row.is_extracted) {
            EXPECT_EQ(box.run({"norvchecksum", "/upd"}).exit_status, row.is_listed ? 0 : 1);
        }
        if (!is_good)
            continue;
        EXPECT_EQ(box.list("/upd"),
                  (std::vector<std::string>{"VERSION", "checksum.norv", "hda1.tgz", "texts", "updater"}));
        EXPECT_EQ(box.mode("/upd/updater"), 0755U);
        EXPECT_EQ(box.read_file("/upd/texts/enu"), "hello\n");
        box.remove("/usr/norv/etc/codesign/0.pem"); // a key that is not there vouches for nothing
        const Result result = extract(box);
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_TRUE(result.record.in_order({"log info *[OPEN] End: [Bad Sig][14][*s]"}));
    }
}

TEST_F(Patch, OldForm)
{
    const Change half_signature = [](Sandbox &box) {
        const std::string signature = box.read_file("/upd/Norvessa.sig");
        box.file("/upd/Norvessa.sig", signature.substr(0, signature.size() / 2));
    };
    const Change more_signature = [](Sandbox &box) {
        box.file("/upd/Norvessa.sig", box.read_file("/upd/Norvessa.sig") + "x");
    };
    const struct {
        const char *fault; // that the builder makes; "": none
        Change change = {};
    } kRows[] = {
        {""},
        {"unsigned"},
        {"signature"},
        {"stranger"},
        {"payload"},
        {"link"},
        {"", file("/upd/VERSION", "majorversion=7\n")},
        {"", file("/upd/more")},
        {"", [](Sandbox &box) { box.file("/upd/updater", "#!/bin/sh\n", 0644); }},
        {"", gone("/upd/Norvessa.sig")},
        {"", half_signature},
        {"", more_signature},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(testing::Message() << row.fault << &row - kRows);
        const bool is_sound = row.fault[0] == '\0', is_good = &row == kRows;
        const std::string patch = is_sound ? make({"--old"}) : make({"--old", "--break", row.fault});
        EXPECT_EQ(verify(patch), is_sound ? 0 : 1);
        Sandbox box;
        appliance_prepare(box);
        const ScratchDir folder;
        run_program({"/bin/tar", "xf", patch, "-C", folder.path()});
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder.path())) {
            const std::string path = "/upd/" + entry.path().lexically_relative(folder.path()).string();
            if (entry.is_symlink())
                box.symlink(path, std::filesystem::read_symlink(entry.path()).string());
            else if (entry.is_regular_file())
                box.host_file(path, entry.path(), static_cast<mode_t>(entry.status().permissions()));
        }
        row.change(box);
        EXPECT_EQ(box.run({"norvcodesign", "/upd"}).exit_status == 0, is_good);
        EXPECT_TRUE(!is_good || box.run({"norvchecksum", "/upd"}).exit_status == 0);
    }
}

} // namespace

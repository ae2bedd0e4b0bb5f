// The museum's disks through the roles that classify a disk, with the appliance's own partition tool.
#include <filesystem>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/sandbox.h"
#include "tests/support/scratch_dir.h"

namespace
{

constexpr char kMaker[] = NORV_SOURCE_DIR "/tests/museum/make_images.py";
constexpr char kExplain[] = NORV_BINARY_DIR "/tools/disk_explain/disk-explain";
constexpr char kSfdisk[] = NORV_BINARY_DIR "/platform/sfdisk/sfdisk";

struct Exhibit {
    std::string name;
    std::map<std::string, std::string> verdicts;
};

std::vector<Exhibit> exhibits_make(const ScratchDir &folder)
{
    std::istringstream lines(run_program({"/usr/bin/python3", kMaker, folder.path()}).out);
    std::vector<Exhibit> exhibits;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        Exhibit exhibit;
        words >> exhibit.name;
        for (std::string word; words >> word;)
            exhibit.verdicts[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
        exhibits.push_back(exhibit);
    }
    return exhibits;
}

// Shows the disk and its partitions to the kernel's listings, as the partition tool tells them.
void kernel_sees(Sandbox &box, const std::string &image)
{
    std::string listing = "major minor  #blocks  name\n\n   8        0    1000000 sda\n";
    const Finished label = run_program({kSfdisk, "-l", "-uS", image});
    std::istringstream lines(label.status == 0 ? label.out : "");
    std::string path, start, size, type;
    for (int n = 1; lines >> path >> start >> size >> type; n++) {
        const std::string name = "sda" + std::to_string(n);
        listing += "   8        " + std::to_string(n) + "    1000 " + name + "\n";
        box.file("/sys/block/sda/" + name + "/start", start + "\n");
        box.file("/sys/block/sda/" + name + "/size", size + "\n");
        box.device("/dev/" + name, 512);
    }
    box.file("/proc/partitions", listing);
}

TEST(Museum, ThroughTheRoles)
{
    const ScratchDir folder;
    const std::vector<Exhibit> exhibits = exhibits_make(folder);
    ASSERT_GT(exhibits.size(), 30U);
    for (const Exhibit &exhibit : exhibits) {
        SCOPED_TRACE(exhibit.name);
        Sandbox box;
        box.file("/etc.defaults/norvinfo.conf", "usbportcfg=\"10\"\ninternalportcfg=\"1\"\n");
        box.host_file("/sbin/sfdisk", kSfdisk);
        box.host_file("/dev/sda", folder.path(exhibit.name), 0660);
        kernel_sees(box, folder.path(exhibit.name));
        box.directory("/sys/block/sda");
        box.program("/sbin/mdadm", {{.args = "-E /dev/sda1", .output = "UUID : 1:2:3:4\n"}});
        box.leaves({"/tmp/.not.dualhead"});

        Result result = box.run({"norvcheckpartition", "sda"});
        EXPECT_EQ(std::to_string(result.exit_status), exhibit.verdicts.at("check")) << result.log_text();
        EXPECT_TRUE(result.files_changed.empty());
        result = box.run({"norvstgcore", "--is-compatible-disk", "/dev/sda1"});
        EXPECT_EQ(result.exit_status, 0);
        std::string word = exhibit.verdicts.at("usable") + "\n";
        if (const size_t dash = word.find('-'); dash != std::string::npos)
            word[dash] = ' ';
        EXPECT_EQ(result.out, word) << result.log_text();
        EXPECT_TRUE(result.files_changed.empty());

        const auto ssd = exhibit.verdicts.find("ssd");
        result = box.run({"norvssdcache", "--check"});
        EXPECT_EQ(result.out, ssd == exhibit.verdicts.end() ? "" : ssd->second) << result.log_text();
        EXPECT_EQ(result.exit_status, result.out == "-1" ? 255 : 0);
    }
}

std::string text_of(json_object *facts, const char *section, const char *key)
{
    json_object *value = nullptr;
    if (json_object_object_get_ex(facts, section, &value) && json_object_object_get_ex(value, key, &value))
        return json_object_get_string(value);
    return "none";
}

// ID:MODE:SIZE of each cache.
std::string caches_of(json_object *facts)
{
    json_object *caches = nullptr;
    std::string text;
    json_object_object_get_ex(facts, "super_block", &caches);
    if (!json_object_object_get_ex(caches, "caches", &caches))
        return "none";
    for (size_t i = 0; i < json_object_array_length(caches); i++) {
        text += i > 0 ? "," : "";
        for (const char *key : {"id", "mode", "size"}) {
            json_object *value = nullptr;
            json_object_object_get_ex(json_object_array_get_idx(caches, i), key, &value);
            text += (key[0] == 'i' ? "" : ":") + std::string(json_object_get_string(value));
        }
    }
    return text;
}

// The explainer on the images themselves, which it leaves as they are.
TEST(Museum, DiskExplain)
{
    const ScratchDir folder;
    const auto verdict = [](const Exhibit &exhibit, const char *key) {
        const auto found = exhibit.verdicts.find(key);
        return found == exhibit.verdicts.end() ? "none" : found->second;
    };
    for (const Exhibit &exhibit : exhibits_make(folder)) {
        SCOPED_TRACE(exhibit.name);
        const std::string image = folder.path(exhibit.name);
        const auto written = std::filesystem::last_write_time(image);
        const Finished explained = run_program({kExplain, "--json", image});
        EXPECT_EQ(explained.status, 0);
        json_object *facts = json_tokener_parse(explained.out.c_str());
        ASSERT_NE(facts, nullptr) << explained.out;
        const std::string version = text_of(facts, "layout", "version");
        EXPECT_EQ(version == "none" ? "0" : version, verdict(exhibit, "check"));
        EXPECT_EQ(text_of(facts, "layout", "row"), verdict(exhibit, "row"));
        EXPECT_EQ(text_of(facts, "root_block", "counts"), verdict(exhibit, "root"));
        const std::string fits = text_of(facts, "root_block", "fits_shared_root");
        const std::string usable = verdict(exhibit, "usable");
        EXPECT_EQ(fits, usable == "yes" ? "true" : usable == "no" ? "false" : "none");
        const std::string super = verdict(exhibit, "super");
        const bool has_block = super != "none" && super != "0" && super != "-1";
        EXPECT_EQ(text_of(facts, "super_block", "found"), has_block ? "1" : super == "-1" ? super : "0");
        EXPECT_EQ(text_of(facts, "super_block", "version"), has_block ? super : "none");
        EXPECT_EQ(text_of(facts, "super_block", "space_type"), verdict(exhibit, "type"));
        EXPECT_EQ(caches_of(facts), verdict(exhibit, "caches"));
        json_object_put(facts);
        EXPECT_EQ(std::filesystem::last_write_time(image), written);
    }
    EXPECT_EQ(run_program({kExplain, folder.path("none")}).status, 1);
    EXPECT_EQ(run_program({kExplain}).status, 2);
    const std::string told = run_program({kExplain, folder.path("root-isolated")}).out;
    EXPECT_NE(told.find("Capability 0x2: a system whose root is not on an isolated disk may not use it, one whose root "
                        "is may."),
              std::string::npos)
        << told;
}

} // namespace

#include "tests/support/firmware.h"

#include <filesystem>

#include "build_paths.h"
#include "tests/platform/run_program.h"

std::string Firmware::pack(const std::string &version, const std::string &updater, const std::string &image,
                           const std::vector<std::string> &options)
{
    scratch_.write("firmware/VERSION", version);
    scratch_.write("firmware/updater", updater, 0755);
    if (image.empty())
        std::filesystem::remove(scratch_.path("firmware/hda1.tgz"));
    else
        scratch_.write("firmware/hda1.tgz", image);
    std::vector<std::string> line = {NORV_BINARY_DIR "/tools/norv-patch/norv-patch",
                                     "make",
                                     scratch_.path("firmware"),
                                     scratch_.path("a.pat"),
                                     "--keys",
                                     scratch_.path("keys")};
    line.insert(line.end(), options.begin(), options.end());
    const Finished made = run_program(line);
    EXPECT_EQ(made.status, 0) << made.out;
    return scratch_.read("a.pat");
}

std::string Firmware::patch(const std::string &updater, const std::string &version)
{
    return pack(version + "\nextractsize=1000\n" + kFirmwareVersion, "#!/bin/sh\n" + updater + "\n",
                std::string(300000, '\n'));
}

void Firmware::trust(Sandbox &box) const
{
    const std::string library = "libnorvcodesign-ng-virtual-junior-wins.so.7";
    box.host_file("/usr/lib/" + library, NORV_BINARY_DIR "/platform/codesign/" + library);
    if (std::filesystem::exists(scratch_.path("keys/0.pem")))
        box.host_file("/usr/norv/etc/codesign/0.pem", scratch_.path("keys/0.pem"), 0644);
    box.host_file("/usr/bin/cksum", NORV_BINARY_DIR "/platform/programs/cksum");
}

void Firmware::boot_partition(Sandbox &box, const char *device) const
{
    for (const std::string name : kFirmwareFiles)
        box.file(box.volume(device) + "/" + name, read(name));
}

// Firmware that the patch builder packs and signs, and machines that trust it.
#pragma once

#include <string>
#include <vector>

#include "tests/support/sandbox.h"
#include "tests/support/scratch_dir.h"

inline const std::string kFirmwareVersion = "majorversion=6\nminorversion=2\nbuildnumber=25556\n";
// What a patch is made of, and what stands on a boot partition.
inline constexpr const char *kFirmwareFiles[] = {"VERSION", "hda1.tgz", "updater", "checksum.norv"};

class Firmware
{
  public:
    // Returns a patch, whose parts are whole files; without an image it has none. `options` are the builder's.
    std::string pack(const std::string &version, const std::string &updater, const std::string &image,
                     const std::vector<std::string> &options = {});
    // The same for a machine of this model. `updater` is what its script does.
    std::string patch(const std::string &updater = "exit 0",
                      const std::string &version = "unique=\"norv_avoton_1817\"");
    // One of its files, once it is packed: where it is on the host, and what it holds.
    [[nodiscard]] std::string path(const std::string &name) const { return scratch_.path("firmware/" + name); }
    [[nodiscard]] std::string read(const std::string &name) const { return scratch_.read("firmware/" + name); }
    // The programs and keys by which a machine verifies it.
    void trust(Sandbox &box) const;
    // Puts its files on a boot partition.
    void boot_partition(Sandbox &box, const char *device = "/dev/norvboot2") const;

  private:
    ScratchDir scratch_{};
};

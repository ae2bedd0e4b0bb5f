#include <cstdio>
#include <getopt.h>

#include "applets/applets.h"
#include "applets/banner.h"
#include "storage/root_block.h"

namespace
{

enum Mode { kUsage = 2, kCompatible, kUpdate, kCapability };

constexpr option kOptions[] = {
    {"help", no_argument, nullptr, kUsage},
    {"is-compatible-disk", required_argument, nullptr, kCompatible},
    {"update-capability", required_argument, nullptr, kUpdate},
    {"capability", required_argument, nullptr, kCapability},
    {nullptr, 0, nullptr, 0},
};

constexpr char kUsageText[] = "Usage:\n"
                              "    norvstgcore --is-compatible-disk <DISK_PATH>\n"
                              "    norvstgcore --update-capability <DISK_PATH> --capability <CAPABILITY>\n";

struct Request {
    int mode = kUsage;
    const char *disk_path = nullptr;
    int capability = -1;
};

// Reads the options. An option without its argument counts, with no argument; an unknown one repeats the option before
// it with no argument.
Request request_read(int argc, char *argv[])
{
    Request request;
    int option = kUsage;
    for (int found = 0; (found = getopt_long_only(argc, argv, "", kOptions, nullptr)) != -1;) {
        if (found != '?')
            option = found;
        else if (optopt != 0)
            option = optopt;
        unsigned capability = 0;
        switch (option) {
        case kCompatible:
        case kUpdate:
            request.mode = option;
            request.disk_path = optarg;
            break;
        case kCapability:
            if (optarg == nullptr || sscanf(optarg, "%x", &capability) != 1)
                return {};
            request.capability = static_cast<int>(capability);
            break;
        default:
            return {};
        }
    }
    return request;
}

int compatible_print(const char *disk_path)
{
    static constexpr const char *kWords[] = {"error", "no", "not found", "yes"}; // by RootBlockVerdict
    puts(kWords[root_block_is_compatible(disk_path) - kRootBlockError]);
    return 0;
}

// Returns 0; -1.
int capability_update(const char *disk_path, uint32_t capability)
{
    UniqueRootBlock block;
    if (root_block_get(disk_path, block.address()) < 0 || root_block_update_capability(capability, block.get()) != 0)
        return -1;
    return root_block_set(disk_path, block.get());
}

} // namespace

int norvstgcore_main(int argc, char *argv[])
{
    const Request request = request_read(argc, argv);
    switch (request.mode) {
    case kCompatible:
        if (request.disk_path == nullptr) {
            puts("error");
            return -1;
        }
        return compatible_print(request.disk_path);
    case kUpdate:
        if (request.disk_path == nullptr || request.capability < 0)
            return -1;
        return capability_update(request.disk_path, static_cast<uint32_t>(request.capability));
    default:
        banner_print();
        fputs(kUsageText, stdout);
        return -1;
    }
}

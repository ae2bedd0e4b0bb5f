#include "lib/conf.h"

#include <cstdint>
#include <cstring>

#include "lib/file.h"

template <int kRoom> static bool is_exactly_yes(const char *key)
{
    char value[kRoom];
    return NLIBCFileGetKeyValue(kDefaultsPath, key, value, kRoom, 0) > 0 && strcmp(value, "yes") == 0;
}

static bool is_virtual_platform(const char *key)
{
    static constexpr const char *kPlatforms[] = {"kvmx64", "nextkvmx64", "kvmcloud"};
    char value[16];
    if (NLIBCFileGetKeyValue(kDefaultsPath, key, value, sizeof(value), 0) <= 0)
        return false;
    for (const char *platform : kPlatforms)
        if (strcmp(value, platform) == 0)
            return true;
    return false;
}

// Defines the probe `name`, which keeps what `test` said of `key` at the first call.
#define PROBE(name, key, test)                                                                                         \
    bool name()                                                                                                        \
    {                                                                                                                  \
        static int8_t answer = -1;                                                                                     \
        if (answer < 0)                                                                                                \
            answer = test(key) ? 1 : 0;                                                                                \
        return answer == 1;                                                                                            \
    }

PROBE(conf_support_install_only_dev, "support_install_only_dev", NLIBCConfIsYes)
PROBE(conf_support_led_behavior_v2, "support_led_behavior_v2", NLIBCConfIsYes)
PROBE(conf_supportsas, "supportsas", NLIBCConfIsYes)
PROBE(conf_blockm2sata, "blockm2sata", NLIBCConfIsYes)
PROBE(conf_support_m2_all_devices, "support_m2_all_devices", NLIBCConfIsYes)
PROBE(conf_support_multipath, "support_multipath", NLIBCConfIsYes)
PROBE(conf_supportnvme, "supportnvme", NLIBCConfIsYes)
PROBE(conf_support_oob_ctl, "support_oob_ctl", NLIBCConfIsYes)
PROBE(conf_supportraid, "supportraid", NLIBCConfIsYes)
PROBE(conf_support_disk_intf_check, "support_disk_intf_check", NLIBCConfIsYes)
PROBE(conf_supportuart2, "supportuart2", is_exactly_yes<512>)
PROBE(conf_ali_nos, "ali_nos", is_exactly_yes<16>)
PROBE(NLIBCConfIsVirtualPlatform, "norvbios", is_virtual_platform)

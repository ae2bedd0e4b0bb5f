#include <cinttypes>
#include <climits>
#include <cstdio>

#include "autocleanup/glob_matches.h"
#include "external/disk_identity.h"
#include "external/enclosure.h"
#include "external/scsi_command.h"
#include "lib/report.h"

namespace
{

// The SCSI device of an enclosure, by its generic node.
UniqueFd enclosure_open(const char *id)
{
    Enclosure enclosure;
    if (enclosure_get(id, &enclosure) != 0)
        return UniqueFd();
    char pattern[NAME_MAX + 64];
    snprintf(pattern, sizeof(pattern), "/sys/class/enclosure/%s/device/scsi_generic/sg*", id);
    GlobMatches nodes;
    if (glob(pattern, 0, nullptr, &nodes.found) != 0) {
        fail(kErrNoDevice);
        return UniqueFd();
    }
    return device_open(base_name(nodes.found.gl_pathv[0]));
}

int configuration_ask(int fd, SesConfiguration *configuration)
{
    constexpr int kConfigurationPage = 1;
    static uint8_t page[4096];
    const int bytes = scsi_receive_diagnostic(fd, kConfigurationPage, page);
    return bytes < 0 ? -1 : ses_configuration_parse(page, static_cast<size_t>(bytes), configuration);
}

} // namespace

int enclosure_configuration_get(const char *id, SesConfiguration *configuration)
{
    if (configuration == nullptr)
        return fail(kErrBadParameter);
    const UniqueFd device = enclosure_open(id);
    return device ? configuration_ask(device.get(), configuration) : -1;
}

int enclosure_serial_get(const char *id, char *serial, size_t size)
{
    constexpr int kSerialPage = 0x80;
    if (serial == nullptr || size == 0)
        return fail(kErrBadParameter);
    const UniqueFd device = enclosure_open(id);
    if (!device)
        return -1;
    DiskIdentity identity = {};
    uint8_t page[252];
    const int bytes = scsi_inquiry(device.get(), kSerialPage, page);
    const bool is_told = bytes > 0 && scsi_serial_parse({page, static_cast<size_t>(bytes)}, &identity) == 0;
    int length = 0;
    if (is_told && identity.serial[0] != '\0') {
        length = snprintf(serial, size, "%s", identity.serial);
    } else {
        SesConfiguration configuration;
        if (configuration_ask(device.get(), &configuration) != 0)
            return -1;
        length = snprintf(serial, size, "%016" PRIx64, configuration.logical_id);
    }
    return static_cast<size_t>(length) < size ? 0 : fail(kErrBufferTooSmall);
}

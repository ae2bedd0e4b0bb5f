#include "findhost/reply_facts.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>

#include "autocleanup/unique.h"
#include "lib/file.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/text.h"
#include "product.h"

static constexpr char kVersionPath[] = "/etc.defaults/VERSION";

namespace
{

uint32_t number_read(const char *key)
{
    char value[32];
    if (NLIBCFileGetKeyValue(kVersionPath, key, value, sizeof(value), 0) <= 0)
        return 0;
    return static_cast<uint32_t>(strtoul(value, nullptr, 10));
}

void numbers_read(FhostRelease *release)
{
    *release = {};
    release->build = number_read("buildnumber");
    release->small_fix = number_read("smallfixnumber");
}

template <size_t kRoom> bool part_read(const char *key, char (&value)[kRoom])
{
    if (NLIBCFileGetKeyValue(kVersionPath, key, value, kRoom, 0) > 0)
        return true;
    NORV_LOG(LOG_ERR, "Failed to get %s from %s", key, kVersionPath);
    return false;
}

} // namespace

void fhost_release_read(FhostRelease *release)
{
    numbers_read(release);
    if (NLIBCFileGetKeyValue(kVersionPath, "productversion", release->version, sizeof(release->version), 0) <= 0) {
        NORV_LOG(LOG_ERR, "Fail to get productversion from %s", kVersionPath);
        release->version[0] = '\0';
    }
}

void fhost_release_read_parts(FhostRelease *release)
{
    char major[16], minor[16];
    numbers_read(release);
    const bool has_major = part_read("majorversion", major), has_minor = part_read("minorversion", minor);
    if (has_major && has_minor)
        snprintf(release->version, sizeof(release->version), "%s.%s", major, minor);
}

int fhost_serial_read(char (&serial)[kFhostSerialRoom])
{
    char line[kFhostSerialRoom] = "";
    const UniqueFd fd(open("/proc/sys/kernel/norv_serial", O_RDONLY | O_CLOEXEC));
    if (!fd || NLIBCRead(fd.get(), line, sizeof(line)) < 0)
        return -1;
    text_cut(serial, text_strip(text_view(line)));
    return static_cast<int>(strlen(serial));
}

const char *fhost_serial_short(const char *serial, int length)
{
    for (const size_t known : kProductLongSerialLengths)
        if (known == static_cast<size_t>(length))
            return serial + length - kProductShortSerialLength;
    NORV_LOG(LOG_ERR, "Serial number is %zd out of size", static_cast<ssize_t>(length));
    return nullptr;
}

uint32_t fhost_address_parse(const char *text)
{
    in_addr address = {};
    return inet_aton(text, &address) != 0 ? address.s_addr : 0;
}

#include <cstdio>

#include "install/update_request.h"
#include "install/version_text.h"
#include "lib/text.h"

int GetUserAgent(char (&buffer)[kUserAgentBytes])
{
    const VersionText unique = version_text_read(kDefaultsPath, "unique");
    const VersionText version = version_text_read("/etc.defaults/VERSION", "productversion");
    const VersionText build = version_text_read("/etc.defaults/VERSION", "buildnumber");
    if (!unique.is_there || !version.is_there || !build.is_there)
        return 0;
    char name[16];
    if (NLIBCFileGetKeyValue(kDefaultsPath, "os_name", name, sizeof(name), 0) <= kEmptyValue)
        text_cut(name, "NOS");
    const int length =
        snprintf(buffer, sizeof(buffer), "%s %s%s %s (webinstaller)", unique.value, name, version.value, build.value);
    return static_cast<size_t>(length) < sizeof(buffer) ? 1 : 0;
}

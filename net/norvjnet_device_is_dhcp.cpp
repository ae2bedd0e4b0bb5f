#include "net/norvjnet.h"

#include <cstring>
#include <unistd.h>

#include "lib/file.h"
#include "lib/report.h"
#include "lib/string.h"

int NORVJNetDeviceIsDHCP(const char *name)
{
    char path[128], value[16];
    if (name == nullptr || NLIBCStrSnprintf(path, sizeof(path), "%s%s", kNetConfigPrefix, name) < 0)
        return 0;
    const int length = NLIBCFileGetKeyValue(path, "BOOTPROTO", value, sizeof(value), 0);
    if (length > 0)
        return strcmp(value, "dhcp") == 0 ? 1 : 0;
    NORV_LOG_OLD(LOG_ERR, "NORVJNetDeviceIsDHCP", " Get BOOTPROTO failed.(%X)", static_cast<unsigned>(NLIBCErrGet()));
    if (length == 0 || access(path, F_OK) != 0) // one that cannot be read now would lose what it holds
        static_cast<void>(NLIBCFileSetKeyValue(path, "BOOTPROTO", "static", "%s=%s\n"));
    return 0;
}

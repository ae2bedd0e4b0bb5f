#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "autocleanup/unique.h"
#include "install/system_status.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/system/system.h"
#include "lib/text.h"

static constexpr char kRoot[] = "/tmpRoot"; // kSystemMountPoint, to be joined with what lies below it
static constexpr char kDefaultPort[] = "5000";

static_assert(std::string_view(kRoot) == kSystemMountPoint);

static void version_fill(const char *version_path)
{
    char text[64];
    if (NLIBCFileGetKeyValue(version_path, "buildnumber", text, sizeof(text), 0) > 0)
        gDiskSysInfo.build_num = static_cast<unsigned long>(atol(text));
    if (NLIBCFileGetKeyValue(version_path, "productversion", gDiskSysInfo.version, sizeof(gDiskSysInfo.version), 0) > 0)
        return;
    char major[32] = "", minor[32] = "";
    if (NLIBCFileGetKeyValue(version_path, "majorversion", major, sizeof(major), 0) > 0 &&
        NLIBCFileGetKeyValue(version_path, "minorversion", minor, sizeof(minor), 0) > 0)
        snprintf(gDiskSysInfo.version, sizeof(gDiskSysInfo.version), "%s.%s", major, minor);
}

static bool port_is_valid(const char *port)
{
    unsigned number = 0;
    if (text_number(port, &number) && number >= 1 && number <= 65535)
        return true;
    NORV_LOG(LOG_ERR, "Invalid port value: %s", port);
    return false;
}

// Finds the first "port" of the web server's settings, a JSON text, and what stands behind it.
static bool port_scan(FILE *settings, char (&port)[8])
{
    for (;;) {
        const long before = ftell(settings);
        const int found = fscanf(settings, "%*[^\"]\"port\"%*[: \t\r\n]%7[^][{}, \t\r\n]", port);
        if (found == 1 || found == EOF)
            return found == 1;
        if (ftell(settings) == before && fgetc(settings) == EOF) // a quote where none may be: step over it
            return false;
    }
}

static void admin_port_fill()
{
    if (NLIBCFileGetKeyValue("/tmpRoot/etc/norvinfo.conf", "admin_port", gDiskSysInfo.admin_port,
                             sizeof(gDiskSysInfo.admin_port), 0) > 0)
        return;
    const UniqueFile settings(fopen("/tmpRoot/usr/norv/etc/www/NOS.json", "re"));
    char port[8];
    const bool is_found = settings && port_scan(settings.get(), port) && port_is_valid(port);
    text_cut(gDiskSysInfo.admin_port, is_found ? port : kDefaultPort);
}

void disk_sys_info_fill()
{
    static constexpr char kConf[] = "/tmpRoot/etc.defaults/norvinfo.conf";
    DiskSysInfo &info = gDiskSysInfo;
    info = {};
    if (NLIBCFileGetKeyValue(kConf, "upnpmodelname", info.model, sizeof(info.model), 0) <= 0)
        NORV_LOG(LOG_ERR, "failed to get upnpmodelname from [%s].", kRoot);
    version_fill("/tmpRoot/etc.defaults/VERSION");
    char platform[sizeof(info.platform)];
    if (system_platform_get(kConf, platform, sizeof(platform)) == 0)
        memcpy(info.platform, platform, sizeof(platform));
    else
        NORV_LOG(LOG_ERR, "failed to get platform from [%s].", kRoot);
    const int max_align = system_max_align_get(kRoot, info.platform);
    if (max_align < 0)
        NORV_LOG(LOG_ERR, "failed to get max alignment from [%s].", kRoot);
    else
        info.max_align = max_align;
    const int endian = system_endian_get(kRoot, info.platform);
    if (endian < 0)
        NORV_LOG(LOG_ERR, "failed to get endian from [%s].", kRoot);
    else
        info.endian = endian;
    const int bits = system_bit_get(kRoot, info.platform);
    if (bits < 0)
        NORV_LOG(LOG_ERR, "failed to get bits from [%s].", kRoot);
    else
        info.bits = bits;
    admin_port_fill();
}

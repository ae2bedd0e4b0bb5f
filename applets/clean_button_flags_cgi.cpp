#include <cerrno>
#include <cstdio>
#include <unistd.h>

#include "applets/applets.h"
#include "autocleanup/scoped_dir.h"
#include "autocleanup/scoped_mount.h"
#include "disk/disk.h"
#include "install/cgi.h"
#include "lib/file.h"
#include "lib/report.h"

namespace
{

constexpr char kFolder[] = "/_disk";
constexpr const char *kFlags[] = {"/_disk/.noroot", "/_disk/.system_crashed"};

int flags_remove()
{
    for (const char *path : kFlags)
        if (!NLIBCFileIsRegular(path)) {
            NORV_LOG(LOG_ERR, "reset-button flags not found");
            return -1;
        }
    int result = 0;
    for (const char *path : kFlags)
        if (unlink(path) != 0 && errno != ENOENT) {
            NORV_LOG(LOG_ERR, "failed to unlink %s", path);
            result = -1;
        }
    return result;
}

int CleanButtonFlags()
{
    if (cgi_neighbour_check() != 0)
        return -1;
    char device[512];
    const int found = disk_sys_device_path_get(device, sizeof(device));
    if (found != 0) {
        NORV_LOG(LOG_ERR, "unable to get disk device with nos partition [%d]", found);
        return -1;
    }
    const ScopedDir folder(kFolder);
    if (!folder.ready())
        return -1;
    const ScopedMount mount(device, kFolder);
    return mount.mounted() ? flags_remove() : -1;
}

} // namespace

int clean_button_flags_cgi_main(int /*argc*/, char * /*argv*/[])
{
    const int result = CleanButtonFlags();
    if (result != 0)
        NORV_LOG(LOG_ERR, "CleanButtonFlags fail");
    fputs(kCgiHtmlHeader, stdout);
    fputs(result == 0 ? "{\"success\": true}" : "{\"success\": false}", stdout);
    return result;
}

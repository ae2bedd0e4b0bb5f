#include <cstdio>
#include <cstdlib>

#include "applets/applets.h"
#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "install/cgi.h"
#include "install/cgi_param.h"
#include "install/install_lock.h"
#include "install/recoverable.h"
#include "install/volume.h"
#include "install/web_progress.h"
#include "lib/report.h"

namespace
{

constexpr char kUpdaterPath[] = "/recover//.norv/patch/updater";

void clock_set(const NLIBSZHASH *params)
{
    const char *text = NLIBCSzHashGetValue(params, "utctime");
    if (text == nullptr || cgi_clock_set(strtoull(text, nullptr, 10)) != 0)
        NORV_LOG(LOG_ERR, "Set RTC fail");
}

int mounted_system_recover(const char *device)
{
    if (volume_mount(device, kRecoverMountPoint) != 0) {
        NORV_LOG(LOG_ERR, "Mount %s on %s fail", device, kRecoverMountPoint);
        return -1;
    }
    if (IsSystemRecoverable(kRecoverMountPoint) != 1) {
        NORV_LOG(LOG_ERR, "%s is not recoverable", kRecoverMountPoint);
        return -1;
    }
    if (RunRecoverUpdater(kUpdaterPath) != 0) {
        NORV_LOG(LOG_ERR, "recover %s by %s fail", kRecoverMountPoint, kUpdaterPath);
        return -1;
    }
    return 0;
}

int recover(UniqueFd *lock)
{
    CgiRequest request = {};
    const int loaded = NorvCgiLoadCGIParam(&request);
    const UniqueHash params(request.params);
    if (loaded != 1) {
        NORV_LOG(LOG_ERR, "NorvCgiLoadCGIParam fail\n");
        return -1;
    }
    if (SetupInstall(lock->address()) != 0) {
        NORV_LOG(LOG_ERR, "Setup install fail");
        return -1;
    }
    clock_set(params.get());
    char device[32] = "";
    (void)disk_sys_device_path_get(device, sizeof(device));
    const int result = mounted_system_recover(device);
    volume_unmount(kRecoverMountPoint);
    return result;
}

} // namespace

int recover_cgi_main(int /*argc*/, char * /*argv*/[])
{
    UniqueFd lock;
    if (recover(&lock) == 0) {
        printf("%s%s", kCgiHtmlHeader, R"({"success": true, "data": {}})");
        return 0;
    }
    if (gWebError.key[0] == '\0')
        web_error_set("error", "error_recover", -1);
    printf("%s{\"success\": false, \"data\": {}, \t\t\t\"errinfo\": {\"sec\": \"%s\",\"key\": \"%s\",\"line\":%d}}",
           kCgiHtmlHeader, gWebError.sec, gWebError.key, gWebError.line);
    return -1;
}

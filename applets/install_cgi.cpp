#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "applets/applets.h"
#include "autocleanup/unique.h"
#include "findhost/findhost_inetd.h"
#include "install/cgi.h"
#include "install/cgi_param.h"
#include "install/download.h"
#include "install/format.h"
#include "install/install_lock.h"
#include "install/ns_config.h"
#include "install/patch.h"
#include "install/shell.h"
#include "install/system_status.h"
#include "install/upload.h"
#include "install/volume.h"
#include "install/web_progress.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/text.h"

namespace
{

constexpr int kLineUnknown = 107, kLineConfig = 695;

struct Install {
    UniqueFd lock;
    UniqueHash params;                              // fields of the form
    DownloadMode mode = kDownloadFresh;             // what becomes of the disks, whichever way the patch comes
    bool is_upload = false;                         // the patch comes with the form
    uint64_t utctime = 0;                           // as cgi_clock_set takes it
    char mount[sizeof(gszUpgradeVolMnt)] = "";      // of the volume, once it is mounted
    char patch[sizeof(gszUpgradeVolMnt) + 32] = ""; // the uploaded one
};

DownloadMode mode_of(const char *status)
{
    if (strcmp(status, "sys_migrat") == 0)
        return kDownloadMigrate;
    return strcmp(status, "sys_crash") == 0 ? kDownloadReinstall : kDownloadFresh;
}

int ParseGetParam(Install *install)
{
    const char *query = getenv("QUERY_STRING");
    if (query == nullptr) {
        NORV_LOG(LOG_ERR, "getenv(QUERY_STRING) fail. [%m]");
        return fail(kErrKeyMissing);
    }
    char text[256];
    text_cut(text, query);
    char *rest = text, *value;
    while (const char *key = cgi_query_next(&rest, &value)) {
        if (strcmp(key, "status") == 0)
            install->mode = mode_of(value);
        else if (strcmp(key, "upload") == 0)
            install->is_upload = strcmp(value, "true") == 0;
        else if (strcmp(key, "utctime") == 0)
            install->utctime = strtoull(value, nullptr, 10);
        else
            NORV_LOG(LOG_ERR, "Unknown param %s=%s", key, value);
    }
    return 0;
}

// Stores the patch of the form on the volume.
bool patch_receive(Install *install, const char *folder)
{
    if (folder_make(folder) != 0) {
        NORV_LOG(LOG_ERR, "Failed to Create %s", folder);
        return false;
    }
    web_progress(kStageUpload, 0, 0);
    install->params.reset(NLIBCSzHashAlloc(kCgiParamBytes));
    UniqueHash files(NLIBCSzHashAlloc(kCgiParamBytes));
    const int status = NorvUploadParse(install->params.address(), files.address(), folder);
    const char *file = files ? NLIBCSzHashGetValue(files.get(), "filename_tmp") : nullptr;
    if (status != kUploadGood)
        NORV_LOG(LOG_ERR, "Failed to Load CGI param");
    else if (file == nullptr)
        NORV_LOG(LOG_ERR, "Failed to get upload file");
    else if (rename(file, install->patch) != 0)
        NORV_LOG(LOG_ERR, "Failed to rename upload patch %s , %s", file, install->patch);
    else
        return true;
    if (file != nullptr)
        unlink(file); // it would take the room that the next try needs
    return false;
}

// Formats while the form is still to be read. The programs that do so find nothing on standard input: one that asks
// there would take the patch for its answer.
int disks_prepare(Install *install)
{
    const UniqueFd form(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)), nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (form && nothing)
        dup2(nothing.get(), STDIN_FILENO);
    const int result = FormatPartition(install->mode == kDownloadMigrate ? 1 : 0, install->mount,
                                       sizeof(install->mount), web_progress);
    if (form)
        dup2(form.get(), STDIN_FILENO);
    return result;
}

// The disks are made ready first: there is no other place for the patch.
int upload_take(Install *install)
{
    if (disks_prepare(install) != 0) {
        NORV_LOG(LOG_ERR, "FormatPartition fail");
        return -1;
    }
    char folder[sizeof(install->mount) + 16];
    snprintf(folder, sizeof(folder), "%s/@autoupdate", install->mount);
    snprintf(install->patch, sizeof(install->patch), "%s/upload.pat", folder);
    if (patch_receive(install, folder))
        return 0;
    web_progress(kStageUpload, kCodeUpload, 0);
    NORV_LOG(LOG_ERR, "Upload patch fail");
    return -1;
}

int form_take(Install *install)
{
    CgiRequest request = {};
    const int result = NorvCgiLoadCGIParam(&request);
    install->params.reset(request.params);
    if (result == 1)
        return 0;
    NORV_LOG(LOG_ERR, "NorvCgiLoadCGIParam fail\n");
    return -1;
}

// Everything up to the fork. Returns as fork does.
pid_t install_start(Install *install)
{
    if (SetupInstall(install->lock.address()) != 0) {
        NORV_LOG(LOG_ERR, "Setup install fail");
        return -1;
    }
    if (ParseGetParam(install) != 0) {
        NORV_LOG(LOG_ERR, "ParseGetParam fail");
        return -1;
    }
    static_cast<void>(cgi_clock_set(install->utctime));
    if ((install->is_upload ? upload_take(install) : form_take(install)) != 0)
        return -1;
    const pid_t child = NLIBCFork(kForkNullStreams);
    if (child < 0)
        NORV_LOG(LOG_ERR, "fork fail!");
    return child;
}

const char *field_text(const Install &install, const char *name)
{
    const char *value = NLIBCSzHashGetValue(install.params.get(), name);
    return value != nullptr ? value : "";
}

int patch_install(Install *install)
{
    const int migrate = install->mode == kDownloadMigrate ? 1 : 0;
    int result;
    if (strcmp(field_text(*install, "buildin"), "true") == 0) {
        result = BuildinInstall(migrate, install->mount, sizeof(install->mount), web_progress);
        if (result != 0)
            NORV_LOG(LOG_ERR, "Upgrade by the buildin patch fail.");
    } else if (install->is_upload) {
        result = InstallPatch(install->patch, install->mount, web_progress);
        if (result != 0)
            NORV_LOG(LOG_ERR, "Upgrade by the uploaded patch %s fail.", install->patch);
    } else {
        result = DownloadAndInstall(install->mode, install->mount, sizeof(install->mount), web_progress);
        if (result != 0)
            NORV_LOG(LOG_ERR, "Upgrade by download patch fail.");
    }
    return result;
}

int system_install(Install *install)
{
    if (patch_install(install) != 0)
        return -1;
    web_progress(kStageFinish, 0, 0);
    if (PrepareNSConfig(install->params.get(), install->mount) == 0)
        return 0;
    web_error_set("error", "err_nsconfig", kLineConfig);
    NORV_LOG(LOG_ERR, "PrepareNSConfig Fail[0x%04X %s:%d]", NORV_ERR_ARGS);
    return -1;
}

// The child's work. The lock is free when it ends, whatever programs it has left running.
void install_finish(Install *install)
{
    if (fcntl(install->lock.get(), F_SETFD, FD_CLOEXEC) != 0)
        NORV_LOG(LOG_ERR, "Failed to fcntl, errno=%d, %m", errno);
    signal(SIGTERM, SIG_DFL); // the client is no concern of this process
    if (system_install(install) == 0) {
        web_progress_finish(field_text(*install, "hostname"));
    } else {
        if (gWebError.key[0] == '\0')
            web_error_set("error", "error_unknown", kLineUnknown);
        static_cast<void>(FHOSTinetdStart());
        web_progress_fail();
    }
    if (install->mount[0] != '\0')
        volume_unmount(install->mount);
    (void)shell_run("%s", "/usr/sbin/pppoe-stop > /dev/null 2>&1");
}

} // namespace

int install_cgi_main(int /*argc*/, char * /*argv*/[])
{
    Install install;
    const pid_t child = install_start(&install);
    if (child == 0) {
        install_finish(&install);
        _exit(0); // the lock goes with this process, and not before
    }
    if (child > 0) {
        install.lock.reset(); // the child has it from now on
        printf("%s%s", kCgiHtmlHeader, R"({"success": true, "data": {}, "redirectIP":""})");
        return 0;
    }
    if (gWebError.key[0] == '\0')
        web_error_set("error", "error_unknown", -1);
    web_error_print(stdout);
    if (install.mount[0] != '\0')
        volume_unmount(install.mount);
    return -1;
}

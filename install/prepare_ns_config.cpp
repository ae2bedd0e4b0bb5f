#include "install/ns_config.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/scoped_umask.h"
#include "autocleanup/unique.h"
#include "install/patch.h"
#include "install/system_status.h"
#include "install/volume.h"
#include "lib/file.h"
#include "lib/proc.h"
#include "lib/report.h"

struct Target {
    const NLIBSZHASH *params;
    const char *root; // of the system volume
    char script_path[PATH_MAX], password_path[PATH_MAX];
};

// The value of a form field; NULL when the form has none.
static const char *field_get(const Target &target, const char *name)
{
    return NLIBCSzHashGetValue(target.params, name);
}

static const char *field_text(const Target &target, const char *name)
{
    const char *value = field_get(target, name);
    return value != nullptr ? value : "";
}

static int mark_touch(const char *root, const char *name)
{
    char path[PATH_MAX];
    if (snprintf(path, sizeof(path), "%s/%s", root, name) >= PATH_MAX) {
        NORV_LOG(LOG_ERR, "Truncated file path should not be touched; error out");
        return fail(kErrTextDoesNotFit);
    }
    if (file_touch_flushed(path) != 0) {
        NORV_LOG(LOG_ERR, "Failed to touch on system volume");
        return fail(kErrOpen);
    }
    return 0;
}

static int marks_touch(const Target &target)
{
    if (mark_touch(target.root, ".WEBINST_OK") != 0)
        return -1;
    if (NLIBCFileIsRegular("/.privacy_confirmed") && mark_touch(target.root, "var/.PrivacyConfirmed") != 0)
        return -1;
    if (strcmp(field_text(target, "remove_ro_ssd_cache"), "true") != 0)
        return 0;
    return mark_touch(target.root, ".remove_ro_ssd_cache");
}

// Flushes and closes. Returns 0; -1 when not all of it was written.
static int file_finish(UniqueFile *file)
{
    const bool is_whole = ferror(file->get()) == 0;
    return fclose(file->release()) == 0 && is_whole ? 0 : fail(kErrWrite);
}

// The password is put where only root reads it, and the script has it taken over from there.
static int password_write(const Target &target, FILE *script)
{
    const char *password = field_get(target, "password");
    if (password == nullptr)
        return 0;
    const ScopedUmask root_alone(S_IRWXG | S_IRWXO);
    UniqueFile file(fopen(target.password_path, "we"));
    if (!file) {
        NORV_LOG(LOG_ERR, "open %s error [%m]", target.password_path);
        return fail(kErrOpen);
    }
    const char *account = field_get(target, "account");
    if (account != nullptr)
        fprintf(script,
                "/usr/norv/sbin/norvuser --add \"%s\" $(/usr/bin/uuidgen) \"\" 1 \"\" administrators\n"
                "/usr/norv/bin/norvwebapi --exec api=NORV.Core.Group.Member method=add version=1 "
                "'group=\"administrators\"' 'name=\"%s\"'\n",
                account, account);
    fprintf(file.get(), "account=\"%s\"\n", account != nullptr ? account : "admin");
    fprintf(file.get(), "password=\"%s\"\n", password);
    fputs("/usr/norv/sbin/norvuser --filesetpw\n"
          "/bin/rm -f /.ns_pwd\n",
          script);
    return file_finish(&file);
}

// Takes the lease along, so that the new system asks for the address that the user knows.
static void lease_copy(const Target &target)
{
    char folder[PATH_MAX];
    snprintf(folder, sizeof(folder), "%s/etc", target.root);
    mkdir(folder, 0755);
    snprintf(folder, sizeof(folder), "%s/etc/dhcpc", target.root);
    mkdir(folder, 0755);
    NLIBCExec("/bin/cp", "-f", "/etc/dhcpc/dhcpcd-eth0.info", folder);
}

static void network_write(const Target &target, FILE *script)
{
    const char *kind = field_get(target, "netconfig");
    if (kind == nullptr || strcmp(kind, "dhcp") == 0) {
        lease_copy(target);
        fputs("/usr/norv/sbin/norvnet --dhcp eth0\n", script);
    } else if (strcmp(kind, "pppoe") == 0) {
        fprintf(script, "/usr/norv/sbin/norvnet --set_pppoe eth0 %s %s\n", field_text(target, "ppp_account"),
                field_text(target, "ppp_passwd"));
    } else if (strcmp(kind, "manual") == 0) {
        fprintf(script, "/usr/norv/sbin/norvnet --manual eth0 %s %s\n", field_text(target, "manual_ip"),
                field_text(target, "manual_mask"));
        fprintf(script, "/usr/norv/sbin/norvnet --set_gateway %s\n", field_text(target, "manual_gateway"));
        fprintf(script, "/usr/norv/sbin/norvnet --set_dns %s\n", field_text(target, "manual_dns"));
    }
}

static int script_write(const Target &target)
{
    UniqueFile script(fopen(target.script_path, "we"));
    if (!script) {
        NORV_LOG(LOG_ERR, "Failed to open .ns_configure.sh (%m)");
        return fail(kErrOpen);
    }
    fputs("#!/bin/sh\n", script.get());
    const char *hostname = field_get(target, "hostname");
    if (hostname != nullptr)
        fprintf(script.get(), "/usr/norv/sbin/norvnet --set_hostname %s\n", hostname);
    if (password_write(target, script.get()) != 0)
        return -1;
    network_write(target, script.get());
    fputs("\n", script.get());
    if (file_finish(&script) != 0)
        return -1;
    return chmod(target.script_path, 0770) == 0 ? 0 : fail(kErrSystemCall);
}

static int volume_prepare(const NLIBSZHASH *params, const char *root)
{
    Target target;
    target.params = params;
    target.root = root;
    snprintf(target.script_path, sizeof(target.script_path), "%s/.ns_configure.sh", root);
    snprintf(target.password_path, sizeof(target.password_path), "%s/.ns_pwd", root);
    if (marks_touch(target) == 0 && script_write(target) == 0)
        return 0;
    unlink(target.script_path);
    unlink(target.password_path); // nobody would take it away
    return -1;
}

int PrepareNSConfig(const NLIBSZHASH *params, const char *mount)
{
    if (strcmp(gszUpgradeVolDev, gszSysDev) == 0)
        return volume_prepare(params, mount);
    if (folder_make(kSystemMountPoint) != 0) {
        NORV_LOG(LOG_ERR, "Fail to mkdir %s[0x%04X %s:%d]", kSystemMountPoint, NORV_ERR_ARGS);
        return -1;
    }
    if (volume_mount(gszSysDev, kSystemMountPoint) != 0) {
        NORV_LOG(LOG_ERR, "Mount %s on %s Fail", gszSysDev, kSystemMountPoint);
        return fail(kErrSystemCall);
    }
    const int result = volume_prepare(params, kSystemMountPoint);
    volume_unmount(kSystemMountPoint);
    return result;
}

#include "install/volume.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <mntent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "install/shell.h"
#include "lib/report.h"

int folder_make(const char *path)
{
    struct stat status;
    if (mkdir(path, 0755) == 0 || (errno == EEXIST && stat(path, &status) == 0 && S_ISDIR(status.st_mode)))
        return 0;
    return fail(kErrSystemCall);
}

int volume_mount(const char *device, const char *folder)
{
    errno = 0;
    if (shell_run("/bin/mkdir -p %s > /dev/null 2>&1", folder) != 0 && errno != EEXIST) {
        NORV_LOG(LOG_ERR, "fail to make directory :%s", folder);
        return -1;
    }
    (void)shell_run("%s", "/bin/sync;/bin/sync;/bin/sync;");
    if (shell_run("/bin/mount %s %s > /dev/null 2>&1", device, folder) != 0) {
        NORV_LOG(LOG_ERR, "mount  partition failed. dev=%s, path=%s", device, folder);
        return -1;
    }
    return 0;
}

void volume_unmount(const char *folder)
{
    (void)shell_run("/bin/umount -f %s > /dev/null 2>&1", folder);
    if (strcmp(folder, "/mnt") != 0)
        rmdir(folder);
}

bool volume_is_mounted(const char *folder)
{
    const UniqueFile mounts(fopen("/proc/mounts", "re"));
    mntent entry;
    char text[2 * PATH_MAX];
    while (mounts && getmntent_r(mounts.get(), &entry, text, sizeof(text)) != nullptr)
        if (strcmp(entry.mnt_dir, folder) == 0)
            return true;
    return false;
}

int MountPartition(const char *device, const char *folder)
{
    NORV_LOG(LOG_ERR, "Mount partion %s %s", device, folder);
    return volume_mount(device, folder) == 0 ? 1 : 0;
}

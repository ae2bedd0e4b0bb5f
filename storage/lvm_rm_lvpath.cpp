#include <climits>
#include <cstring>
#include <mntent.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "lib/string.h"
#include "storage/lvm.h"
#include "storage/space.h"

namespace
{

// Whether a removal is worth a line: only when its program exited, and not with 0.
bool has_failed(int status)
{
    return status != 0 && status != -1;
}

void volume_remove(const char *volume)
{
    if (has_failed(space_execl("/sbin/lvremove", "-f", volume, nullptr)))
        NORV_LOG(LOG_DEBUG, "Failed to /sbin/lvremove -f %s", volume);
}

// Pushes source and directory of each mount whose source begins with `prefix`. Returns 0; -1, logged when there is no
// list of mounts.
int mounts_find(const char *prefix, PNLIBSZLIST *pairs)
{
    static constexpr char kMounts[] = "/proc/mounts";
    const UniqueFile mounts(fopen(kMounts, "re"));
    if (!mounts) {
        NORV_LOG(LOG_DEBUG, "Failed to open %s", kMounts);
        return fail(kErrOpen);
    }
    mntent entry;
    char text[2 * PATH_MAX];
    while (getmntent_r(mounts.get(), &entry, text, sizeof(text)) != nullptr)
        if (strcmp(entry.mnt_type, "aufs") != 0 && strncmp(entry.mnt_fsname, prefix, strlen(prefix)) == 0 &&
            (NLIBCSzListPush(pairs, entry.mnt_fsname) < 0 || NLIBCSzListPush(pairs, entry.mnt_dir) < 0))
            return -1;
    return 0;
}

void snapshot_remove(const char *source, const char *directory)
{
    if (has_failed(space_execl("/bin/umount", "-R", "-A", "-k", directory, nullptr)))
        NORV_LOG(LOG_DEBUG, "Failed to /bin/umount -f -k %s", directory);
    sleep(1);
    if (rmdir(directory) != 0)
        NORV_LOG(LOG_DEBUG, "Failed to rmdir(%s)", directory);
    volume_remove(source);
}

} // namespace

int lvm_rm_lvpath(const char *device)
{
    if (device == nullptr)
        return fail(kErrBadParameter);
    char volume[PATH_MAX], prefix[PATH_MAX + 1];
    if (lvm_get_lvpath(device, volume, sizeof(volume)) != 0)
        return 0;
    UniqueList mounts(NLIBCSzListAlloc(1024)); // all of them first: each unmount changes what the kernel lists
    if (!mounts || NLIBCStrSnprintf(prefix, sizeof(prefix), "%ss", volume) < 0 ||
        mounts_find(prefix, mounts.address()) != 0)
        return -1;
    for (int i = 0; i + 1 < mounts.get()->nItem; i += 2)
        snapshot_remove(mounts.get()->items[i], mounts.get()->items[i + 1]);
    volume_remove(volume);
    char *slash = strrchr(volume, '/');
    if (slash == nullptr) {
        NORV_LOG(LOG_DEBUG, "szLVPath=[%s]", volume);
        return fail(kErrBadFormat);
    }
    *slash = '\0';
    if (has_failed(space_execl("/sbin/vgremove", "-f", volume, nullptr)))
        NORV_LOG(LOG_DEBUG, "Failed to /sbin/vgremove -f %s", volume);
    if (has_failed(space_execl("/sbin/pvremove", "-f", device, nullptr)))
        NORV_LOG(LOG_DEBUG, "Failed to /sbin/pvremove -f %s", device);
    return 0;
}

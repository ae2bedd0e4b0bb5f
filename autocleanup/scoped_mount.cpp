#include "autocleanup/scoped_mount.h"

#include "autocleanup/keep_report.h"
#include "lib/proc.h"

ScopedMount::ScopedMount(const char *device, const char *directory)
    : directory_(directory), mounted_(NLIBCExec("/usr/bin/mount", device, directory) == 0)
{
}

ScopedMount::~ScopedMount()
{
    const KeepReport keep;
    if (mounted_)
        NLIBCExec("/usr/bin/umount", "-l", directory_);
}

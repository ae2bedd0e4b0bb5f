#include "lib/module.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/report.h"

int module_load(const char *path, const char *args)
{
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file)
        return fail(kErrOpen);
    return syscall(SYS_finit_module, file.get(), args, 0) == 0 ? 0 : fail(kErrSystemCall);
}

int module_unload(const char *name)
{
    return syscall(SYS_delete_module, name, O_NONBLOCK) == 0 ? 0 : fail(kErrSystemCall);
}

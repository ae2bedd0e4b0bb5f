#include "autocleanup/scoped_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/keep_report.h"
#include "lib/report.h"

ScopedDir::ScopedDir(const char *path, mode_t mode) : path_(path), made_(mkdir(path, mode) == 0), ready_(made_)
{
    if (made_)
        return;
    NORV_LOG(LOG_ERR, "mkdir failed: %m");
    struct stat left_behind;
    ready_ = lstat(path, &left_behind) == 0 && S_ISDIR(left_behind.st_mode);
}

ScopedDir::~ScopedDir()
{
    const KeepReport keep;
    if (made_)
        NORV_LOG(LOG_INFO, "remove directory %s, result is %d", path_, rmdir(path_));
}

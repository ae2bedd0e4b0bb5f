#include "applets/ncemd.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <glob.h>
#include <unistd.h>

#include "autocleanup/glob_matches.h"
#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr char kThawPattern[] = "/sys/class/scsi_host/*/norv_port_thaw";

namespace
{

// Reads a short file into a text. Returns false when it cannot be opened or read.
template <size_t kRoom> bool text_read(const char *path, char (&text)[kRoom])
{
    memset(text, 0, kRoom);
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    return file && read(file.get(), text, kRoom - 1) >= 0;
}

// Reads the name of the disk behind a port, as the file beside the port's own gives it, its newline included.
template <size_t kRoom> bool disk_name_read(const char *thaw_path, char (&name)[kRoom])
{
    const int folder_length = static_cast<int>(strrchr(thaw_path, '/') - thaw_path);
    char path[64];
    NLIBCStrSnprintf(path, sizeof(path), "%.*s/norv_diskname_trans", folder_length, thaw_path);
    if (text_read(path, name))
        return true;
    NORV_LOG(LOG_ERR, "File not exist: %s", path);
    return false;
}

void port_check(const char *thaw_path)
{
    char thaw[4], name[8];
    if (!text_read(thaw_path, thaw)) {
        NORV_LOG(LOG_ERR, "Get %s fail", thaw_path);
        return;
    }
    // A name that ends in a newline is never equal to "SAS".
    if (thaw[0] != '0' || !disk_name_read(thaw_path, name) || strcmp(name, "SAS") == 0)
        return;
    DiskLocation location = {};
    if (disk_path_parse(name, &location) < 0) {
        NORV_LOG(LOG_ERR, "fail to parse disk %s id", name);
        return;
    }
    if (location.container == kDiskContainerInternal && location.index >= 1 && location.index <= gblDiskCount)
        gblDiskState[location.index - 1] = {kDiskFault, 1};
}

} // namespace

void ncemd_port_thaw_scan()
{
    GlobMatches matches;
    const int result = glob(kThawPattern, 0, nullptr, &matches.found);
    if (result != 0) {
        NORV_LOG(LOG_ERR, "Failed to glob norv_port_thaw: error(%d) %s", result, strerror(errno));
        return;
    }
    for (size_t i = 0; i < matches.found.gl_pathc; i++)
        port_check(matches.found.gl_pathv[i]);
}

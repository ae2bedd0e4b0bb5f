#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "applets/manutild.h"
#include "autocleanup/unique.h"
#include "lib/report.h"

static constexpr char kBusyPath[] = "/tmp/exporting_mantool";
static constexpr char kExportPath[] = "/var/log/mantool_export";

namespace
{

struct Reply {
    uint32_t result;
    char text[4092];
};

// Has the factory tool write its report, and reads it. Returns its length; -1.
int report_export(char *text, size_t room)
{
    static constexpr const char *kCommands[] = {"mantool -sn_get >> %s", "mantool -mac_get >> %s",
                                                "mantool -test_flag_list >> %s"};
    if (unlink(kExportPath) != 0 && errno != ENOENT)
        return -1;
    for (const char *format : kCommands) {
        char command[64];
        snprintf(command, sizeof(command), format, kExportPath);
        if (system(command) != 0)
            return -1;
    }
    const UniqueFile file(fopen(kExportPath, "re"));
    if (!file)
        return -1;
    const size_t bytes = fread(text, 1, room, file.get());
    return ferror(file.get()) != 0 ? -1 : static_cast<int>(bytes);
}

} // namespace

int ManTestFlagGet(UDPD_HANDLE *handle, char * /*message*/, int /*length*/)
{
    const UniqueFd busy(open(kBusyPath, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!busy && errno == EEXIST) {
        NORV_LOG(LOG_ERR, "Other process is processing ManTestFlagGet, abort");
        return -1;
    }
    Reply reply;
    const int bytes = busy ? report_export(reply.text, sizeof(reply.text)) : -1;
    if (bytes < 0) // the file stays, and further requests are refused
        return man_reply(handle, kManTestFlagGet, kManFailed);
    const int32_t result = unlink(kBusyPath) == 0 ? kManDone : kManFailed;
    return man_reply_data(handle, kManTestFlagGet, result, &reply, offsetof(Reply, text) + static_cast<size_t>(bytes));
}

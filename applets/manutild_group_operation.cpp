#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

#include "applets/manutild.h"
#include "autocleanup/unique.h"
#include "lib/report.h"

static constexpr char kOutputPath[] = "/tmp/manutil_command.output";

namespace
{

struct Reply {
    uint32_t result, status; // network order
    char serial[64];
    char output[1280];
};
static_assert(sizeof(Reply) == 1352);

constexpr size_t kOutputMax = 1023;
constexpr size_t kSerialRoom = sizeof(Reply::serial) - 3; // behind "SN="

// The serial as the kernel tells it; empty when it does not. Returns 0; -1 without a shell.
int serial_read(char (&serial)[kSerialRoom])
{
    const Unique<FILE *, nullptr, pclose> pipe(popen("cat /proc/sys/kernel/norv_serial", "re"));
    if (!pipe)
        return -1;
    if (fgets(serial, sizeof(serial), pipe.get()) == nullptr)
        serial[0] = '\0';
    serial[strcspn(serial, "\n")] = '\0';
    return 0;
}

// Runs the command, and takes what it left for the station. Returns 0; -1 when it could not be run.
int operation_run(const char *command, Reply *reply)
{
    char serial[kSerialRoom];
    if (serial_read(serial) != 0)
        return -1;
    NORV_LOG(LOG_ERR, "serial = %s", serial);
    snprintf(reply->serial, sizeof(reply->serial), "SN=%s", serial);
    NORV_LOG(LOG_ERR, "group operation initiated, cmd='%s'", command);
    const int status = system(command);
    if (status != -1 && WIFEXITED(status))
        reply->status = htonl(static_cast<uint32_t>(WEXITSTATUS(status)));
    const UniqueFile file(fopen(kOutputPath, "re"));
    if (file)
        static_cast<void>(!fread(reply->output, 1, kOutputMax, file.get()));
    unlink(kOutputPath);
    return status == -1 ? -1 : 0;
}

} // namespace

int MANGroupOperation(UDPD_HANDLE *handle, char *message, int /*length*/)
{
    Reply reply = {};
    reply.status = htonl(UINT32_MAX); // -1: not run, or ended by a signal
    const int32_t result = message != nullptr ? operation_run(message, &reply) : -1;
    return man_reply_data(handle, kManGroupOperation, result, &reply, sizeof(reply));
}

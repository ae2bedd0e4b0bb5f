#include "panel/lcm.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "lib/report.h"

static constexpr size_t kTextRecordBytes = 102;

// The panel never holds the daemon up: what the line does not take is lost.
static void bytes_send(const char *bytes, size_t size)
{
    if (gblLcmFd < 0) {
        NORV_LOG(LOG_ERR, "Error Parameter for LCM module.");
        return;
    }
    if (write(gblLcmFd, bytes, size) < 0)
        return;
}

void lcm_show(const char *first, const char *second)
{
    char record[kTextRecordBytes] = {};
    snprintf(record, sizeof(record), "-A#%s#%s#", first, second);
    bytes_send(record, sizeof(record));
}

void lcm_command(const char *command)
{
    bytes_send(command, strlen(command) + 1);
}

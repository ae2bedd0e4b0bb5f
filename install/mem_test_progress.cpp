#include "install/mem_test_progress.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "autocleanup/unique.h"
#include "lib/report.h"

static constexpr char kProgressPath[] = "/tmp/memtester.progress";

static int number_read(const char *text, unsigned long *number)
{
    errno = 0;
    *number = strtoul(text, nullptr, 10);
    if (errno != 0) {
        NORV_LOG(LOG_ERR, "convert %s fail: %s", text, strerror(errno));
        return fail(kErrBadFormat);
    }
    return 0;
}

int GetMemTestProgress(unsigned long *current, unsigned long *total)
{
    const UniqueFile file(fopen(kProgressPath, "r+e"));
    if (!file) {
        if (errno != ENOENT)
            NORV_LOG(LOG_ERR, "open %s fail: %s", kProgressPath, strerror(errno));
        return fail(kErrOpen);
    }
    char line[1024];
    if (fgets(line, sizeof(line), file.get()) == nullptr)
        line[0] = '\0';
    line[strcspn(line, "\n")] = '\0';
    char *slash = strchr(line, '/');
    if (slash == nullptr) {
        NORV_LOG(LOG_ERR, "cannot find '/' in [%s]", line);
        return fail(kErrBadFormat);
    }
    *slash = '\0';
    return number_read(line, current) == 0 && number_read(slash + 1, total) == 0 ? 0 : -1;
}

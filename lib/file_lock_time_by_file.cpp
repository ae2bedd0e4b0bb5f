#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/lock.h"
#include "lib/report.h"

static constexpr useconds_t kRetryUs = 50'000;
static constexpr int64_t kRetryHundredths = 5; // what a try counts
static constexpr int kForever = -1;

int NLIBCFileLockTimeByFile(const char *path, int exclusive, int seconds, int *fd)
{
    if (path == nullptr || fd == nullptr) {
        fail(kErrBadParameter);
        return 0;
    }
    UniqueFd file(open(path, O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644));
    if (!file) {
        fail(kErrOpen);
        return 0;
    }
    const int operation = (exclusive != 0 ? LOCK_EX : LOCK_SH) | LOCK_NB;
    for (int64_t hundredths = kRetryHundredths; flock(file.get(), operation) != 0; hundredths += kRetryHundredths) {
        // A network file system may be interrupted; that counts as a refusal, so that the limit holds.
        const bool refused = errno == EWOULDBLOCK || errno == EINTR;
        if (!refused || (seconds != kForever && hundredths > int64_t{seconds} * 100)) {
            fail(kErrLockTimeout);
            return 0;
        }
        usleep(kRetryUs);
    }
    *fd = file.release();
    return 1;
}

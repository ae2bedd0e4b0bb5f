#include <fcntl.h>
#include <sys/swap.h>
#include <unistd.h>

#include "autocleanup/keep_report.h"
#include "autocleanup/unique.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "swap/swap.h"

namespace
{

constexpr char kFlagPath[] = "/proc/sys/kernel/norv_swap_flag";

int flag_write(char value)
{
    const UniqueFd fd(open(kFlagPath, O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!fd) {
        NORV_LOG(LOG_ERR, "%s(%d): failed to open %s", __func__, __LINE__, kFlagPath);
        return fail(kErrOpen);
    }
    if (write(fd.get(), &value, 1) == 1)
        return 0;
    NORV_LOG(LOG_ERR, "%s(%d): failed to write %s", __func__, __LINE__, kFlagPath);
    return fail(kErrWrite);
}

// The kernel lets swap devices come and go only while its switch is on.
class ScopedSwapFlag
{
  public:
    ScopedSwapFlag() : is_set_(flag_write('1') == 0) {}
    ScopedSwapFlag(const ScopedSwapFlag &) = delete;
    ScopedSwapFlag &operator=(const ScopedSwapFlag &) = delete;
    ~ScopedSwapFlag()
    {
        const KeepReport keep;
        static_cast<void>(flag_write('0')); // also when it could not be set: it may have been half written
    }

    [[nodiscard]] bool is_set() const { return is_set_; }

  private:
    bool is_set_;
};

int invalid_arguments(const char *function, int line)
{
    NORV_LOG(LOG_ERR, "%s(%d): Invalid arguments", function, line);
    return fail(kErrBadParameter);
}

} // namespace

int swap_on(const char *device, int priority)
{
    if (device == nullptr)
        return invalid_arguments(__func__, __LINE__);
    const ScopedSwapFlag flag;
    if (!flag.is_set())
        return -1;
    const int flags = priority > 0 ? (priority & 0xffff) | SWAP_FLAG_PREFER : 0;
    return swapon(device, flags) == 0 ? 0 : fail(kErrSystemCall);
}

int swap_off(const char *device)
{
    if (device == nullptr)
        return invalid_arguments(__func__, __LINE__);
    const ScopedSwapFlag flag;
    if (!flag.is_set())
        return -1;
    return swapoff(device) == 0 ? 0 : fail(kErrSystemCall);
}

int swap_make_and_on(const char *device, int priority)
{
    if (device == nullptr)
        return invalid_arguments(__func__, __LINE__);
    const int status = NLIBCExecl("/sbin/mkswap", kExecDetached, device, nullptr);
    if (status != 0) {
        NORV_LOG(LOG_ERR, "Failed to mkswap %s, ret = %d", device, status);
        return fail(kErrChild);
    }
    return swap_on(device, priority);
}

#include "external/cpld_info.h"

#include <cstdint>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "autocleanup/unique.h"
#include "lib/report.h"

static constexpr char kBoardPath[] = "/dev/norvbios";
static constexpr unsigned long kBoardCpldFirst = 0xc0044b0d;  // int32, out
static constexpr unsigned long kBoardCpldSecond = 0xc0044b0e; // int32, out

int get_cpld_info(NORVCfgInfo *out)
{
    if (out == nullptr) {
        NORV_LOG(LOG_ERR, "Bad Parameter");
        return fail(kErrBadParameter);
    }
    *out = {};
    const UniqueFd board(open(kBoardPath, O_RDWR | O_CLOEXEC));
    if (!board)
        return fail(kErrOpen);
    for (const unsigned long request : {kBoardCpldFirst, kBoardCpldSecond}) {
        int32_t value = 0;
        if (ioctl(board.get(), request, &value) < 0)
            return fail(kErrSystemCall);
    }
    return 0;
}

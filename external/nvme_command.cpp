#include "external/nvme_command.h"

#include <algorithm>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

#include "lib/report.h"

// NVM Express 1.4, 5.14 and 5.15.
static constexpr uint8_t kGetLogPage = 0x02, kIdentify = 0x06;
static constexpr uint32_t kIdentifyController = 1, kSmartLog = 2, kAllNamespaces = 0xffffffff;
static constexpr uint32_t kTimeout_ms = 20000;

static int admin_command(int fd, uint8_t opcode, uint32_t name_space, uint32_t word10, std::span<uint8_t> answer)
{
    std::fill(answer.begin(), answer.end(), uint8_t{0});
    nvme_admin_cmd command = {};
    command.opcode = opcode;
    command.nsid = name_space;
    command.addr = reinterpret_cast<uintptr_t>(answer.data());
    command.data_len = static_cast<uint32_t>(answer.size());
    command.cdw10 = word10;
    command.timeout_ms = kTimeout_ms;
    return ioctl(fd, NVME_IOCTL_ADMIN_CMD, &command) == 0 ? 0 : fail(kErrSystemCall);
}

int nvme_identify_controller(int fd, std::span<uint8_t, kNvmeIdentifyBytes> answer)
{
    return admin_command(fd, kIdentify, 0, kIdentifyController, answer);
}

int nvme_smart_log(int fd, std::span<uint8_t, kNvmeSmartBytes> answer)
{
    constexpr uint32_t kWordsLessOne = kNvmeSmartBytes / 4 - 1;
    return admin_command(fd, kGetLogPage, kAllNamespaces, kWordsLessOne << 16 | kSmartLog, answer);
}

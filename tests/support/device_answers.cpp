#include "tests/support/device_answers.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>

static DeviceAnswers *active = nullptr;

DeviceAnswers::DeviceAnswers(std::vector<DeviceAnswer> rows, std::uint64_t size_bytes)
    : rows_(std::move(rows)), size_bytes_(size_bytes)
{
    active = this;
}

DeviceAnswers::~DeviceAnswers()
{
    active = nullptr;
}

const DeviceAnswer *DeviceAnswers::find(const std::string &command) const
{
    const auto row = std::find_if(rows_.begin(), rows_.end(), [&command](const DeviceAnswer &known) {
        return known.command.size() <= command.size() &&
               std::equal(known.command.begin(), known.command.end(), command.begin(),
                          [](char pattern, char byte) { return pattern == '.' || pattern == byte; });
    });
    return row == rows_.end() ? nullptr : &*row;
}

static int failed(int error)
{
    errno = error;
    return -1;
}

static int scsi_answer(const DeviceAnswer *row, sg_io_hdr *header)
{
    static constexpr char kInvalidCommand[] = {0x70, 0, 5, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0, 0, 0, 0, 0};
    static constexpr unsigned char kCheckCondition = 2, kDriverSense = 8;
    const std::string sense = row == nullptr ? std::string(kInvalidCommand, sizeof(kInvalidCommand)) : row->sense;
    const std::string bytes = row == nullptr ? "" : row->bytes;
    const size_t count = std::min<size_t>(bytes.size(), header->dxfer_len);
    if (count > 0)
        memcpy(header->dxferp, bytes.data(), count);
    header->resid = static_cast<int>(header->dxfer_len - count);
    header->status = sense.empty() ? 0 : kCheckCondition;
    header->driver_status = sense.empty() ? 0 : kDriverSense;
    header->sb_len_wr = static_cast<unsigned char>(std::min<size_t>(sense.size(), header->mx_sb_len));
    memcpy(header->sbp, sense.data(), header->sb_len_wr);
    return 0;
}

int DeviceAnswers::request(unsigned long request, void *argument)
{
    if (request == BLKGETSIZE64) {
        memcpy(argument, &size_bytes_, sizeof(size_bytes_));
        return 0;
    }
    if (request == NVME_IOCTL_ADMIN_CMD) {
        const auto *command = static_cast<const nvme_admin_cmd *>(argument);
        const DeviceAnswer *row = find({static_cast<char>(command->opcode), static_cast<char>(command->cdw10 & 0xff)});
        if (row == nullptr || row->error != 0)
            return failed(row == nullptr ? EIO : row->error);
        memcpy(reinterpret_cast<void *>(command->addr), row->bytes.data(), // NOLINT(performance-no-int-to-ptr)
               std::min<size_t>(row->bytes.size(), command->data_len));
        return 0;
    }
    if (request == SG_IO) {
        auto *header = static_cast<sg_io_hdr *>(argument);
        const DeviceAnswer *row = find({reinterpret_cast<const char *>(header->cmdp), header->cmd_len});
        return row != nullptr && row->error != 0 ? failed(row->error) : scsi_answer(row, header);
    }
    return failed(ENOTTY);
}

extern "C" int __real_ioctl(int fd, unsigned long request, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...);

extern "C" int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return active != nullptr ? active->request(request, argument) : __real_ioctl(fd, request, argument);
}

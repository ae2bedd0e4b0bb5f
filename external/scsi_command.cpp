#include "external/scsi_command.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <scsi/sg_cmds_basic.h>
#include <scsi/sg_cmds_extra.h>
#include <scsi/sg_lib.h>

#include "lib/report.h"
#include "lib/text.h"

static constexpr int kCommandSeconds = 20;
static constexpr uint8_t kAtaPassThrough16 = 0x85;
static constexpr size_t kCdbBytes = 16;

namespace
{

void clear(std::span<uint8_t> answer)
{
    std::fill(answer.begin(), answer.end(), uint8_t{0});
}

int answer_bytes(int result, std::span<uint8_t> answer, int residual)
{
    if (result != 0)
        return fail(kErrSystemCall);
    return std::max(static_cast<int>(answer.size()) - std::max(residual, 0), 0);
}

// The layout of SAT-4, 12.2.2.3: byte 1 holds the protocol, byte 2 flags, then registers, each behind its high byte.
void ata_cdb(const AtaCommand &command, bool has_data, uint8_t *cdb)
{
    constexpr uint8_t kNonData = 3 << 1, kPioIn = 4 << 1;
    constexpr uint8_t kCheckCondition = 0x20; // give the registers back
    constexpr uint8_t kOneBlockIn = 0x0e;     // from the device, in blocks, their number in the count register
    memset(cdb, 0, kCdbBytes);
    cdb[0] = kAtaPassThrough16;
    cdb[1] = has_data ? kPioIn : kNonData;
    cdb[2] = has_data ? kOneBlockIn : kCheckCondition;
    cdb[4] = command.feature;
    cdb[6] = has_data ? 1 : 0;
    cdb[10] = command.lba_mid;
    cdb[12] = command.lba_high;
    cdb[14] = command.command;
}

} // namespace

UniqueFd device_open(const char *device)
{
    static constexpr char kFolder[] = "/dev/";
    const bool is_path = device != nullptr && strncmp(device, kFolder, strlen(kFolder)) == 0;
    char path[NAME_MAX + 8];
    if (device == nullptr || *device == '\0' ||
        snprintf(path, sizeof(path), "%s%s", is_path ? "" : kFolder, device) >= static_cast<int>(sizeof(path))) {
        fail(kErrBadParameter);
        return UniqueFd();
    }
    // Without O_NONBLOCK an open waits for a medium.
    UniqueFd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd)
        fail(kErrOpen);
    return fd;
}

int scsi_inquiry(int fd, int page, std::span<uint8_t> answer)
{
    clear(answer);
    int residual = 0;
    const bool is_standard = page == kScsiStandardInquiry;
    const int result = sg_ll_inquiry_v2(fd, !is_standard, is_standard ? 0 : page, answer.data(),
                                        static_cast<int>(answer.size()), kCommandSeconds, &residual, false, 0);
    return answer_bytes(result, answer, residual);
}

int scsi_log_sense(int fd, int page, std::span<uint8_t> answer)
{
    constexpr int kCumulative = 1;
    clear(answer);
    int residual = 0;
    const int result = sg_ll_log_sense_v2(fd, false, false, kCumulative, page, 0, 0, answer.data(),
                                          static_cast<int>(answer.size()), kCommandSeconds, &residual, false, 0);
    return answer_bytes(result, answer, residual);
}

int scsi_receive_diagnostic(int fd, int page, std::span<uint8_t> answer)
{
    clear(answer);
    int residual = 0;
    const int result = sg_ll_receive_diag_v2(fd, true, page, answer.data(), static_cast<int>(answer.size()),
                                             kCommandSeconds, &residual, false, 0);
    return answer_bytes(result, answer, residual);
}

int scsi_grown_defects(int fd, std::span<uint8_t> answer)
{
    constexpr int kPhysicalSectorFormat = 5;
    clear(answer);
    const int result = sg_ll_read_defect10(fd, false, true, kPhysicalSectorFormat, answer.data(),
                                           static_cast<int>(answer.size()), false, 0);
    return answer_bytes(result == SG_LIB_CAT_RECOVERED ? 0 : result, answer, 0);
}

int ata_command(int fd, const AtaCommand &command, std::span<uint8_t> answer)
{
    clear(answer);
    uint8_t cdb[kCdbBytes], sense[64];
    ata_cdb(command, true, cdb);
    int residual = 0;
    const int result =
        sg_ll_ata_pt(fd, cdb, static_cast<int>(sizeof(cdb)), kCommandSeconds, answer.data(), nullptr,
                     static_cast<int>(answer.size()), sense, static_cast<int>(sizeof(sense)), nullptr, 0, &residual, 0);
    return answer_bytes(result, answer, residual);
}

int ata_command_registers(int fd, const AtaCommand &command)
{
    constexpr uint8_t kDescriptorCode = 9; // SAT-4, 12.2.2.7: ATA Status Return
    constexpr uint8_t kFixedFormat = 0x70; // SAT-4, 12.2.2.8, with ATA PASS-THROUGH INFORMATION AVAILABLE
    constexpr uint8_t kAtaInformation = 0x1d;
    uint8_t cdb[kCdbBytes], sense[64] = {}, registers[14] = {};
    ata_cdb(command, false, cdb);
    const int result =
        sg_ll_ata_pt(fd, cdb, static_cast<int>(sizeof(cdb)), kCommandSeconds, nullptr, nullptr, 0, sense,
                     static_cast<int>(sizeof(sense)), registers, static_cast<int>(sizeof(registers)), nullptr, 0);
    // The registers come as sense data; a result above 0 then is the SCSI status. Some adapters use the fixed format.
    if (result < 0)
        return fail(kErrSystemCall);
    if (registers[0] == kDescriptorCode)
        return registers[11] << 8 | registers[9];
    const bool is_fixed =
        result > 0 && (sense[0] & 0x7f) == kFixedFormat && sense[12] == 0 && sense[13] == kAtaInformation;
    return is_fixed ? sense[11] << 8 | sense[10] : fail(kErrSystemCall);
}

void field_text(std::span<const uint8_t> field, char *text, size_t size)
{
    size_t length = 0;
    for (const uint8_t byte : field) {
        if (length + 1 >= size || byte == '\0')
            break;
        const bool is_skipped = byte == ' ' && length == 0;
        if (!is_skipped)
            text[length++] = byte >= ' ' && byte < 0x7f ? static_cast<char>(byte) : '?';
    }
    while (length > 0 && text[length - 1] == ' ')
        length--;
    text[length] = '\0';
}

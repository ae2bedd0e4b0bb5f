#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "boot/boot_partition.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/semaphore.h"
#include "lib/text.h"
#include "manutil/vender_format.h"

static constexpr char kRecordPath[] = "/tmp/bootmnt/vender";
static constexpr char kNewPath[] = "/tmp/bootmnt/vender.new";
static constexpr char kVersionPath[] = "/proc/sys/kernel/norv_vender_format_version";
static constexpr key_t kSemaphoreKey = 0x6d746433;
static constexpr int kWriteTries = 3;

// The boot partition under its lock, mounted, until scope exit.
class NORVBootLockPartition
{
  public:
    NORVBootLockPartition() : is_mounted_(MountBootPartition() == 0) {}
    NORVBootLockPartition(const NORVBootLockPartition &) = delete;
    NORVBootLockPartition &operator=(const NORVBootLockPartition &) = delete;
    ~NORVBootLockPartition()
    {
        if (is_mounted_)
            UmountBootPartition();
    }
    [[nodiscard]] bool is_mounted() const { return is_mounted_; }

  private:
    bool is_mounted_;
};

static VenderRecord record_blank()
{
    VenderRecord record = {};
    if (vender_format_version_get(&record.format_version) != 0)
        record.format_version = 0;
    record.flags.pt_mem_cnt = kVenderNeverSet;
    return record;
}

static int record_read(VenderRecord *record)
{
    const UniqueFd file(open(kRecordPath, O_RDONLY | O_CLOEXEC));
    if (!file && errno == ENOENT) {
        *record = record_blank();
        return 0;
    }
    uint8_t bytes[kVenderBytes + 1];
    const ssize_t got = file ? NLIBCRead(file.get(), bytes, sizeof(bytes)) : -1;
    if (got < 0)
        return fail(kErrRead);
    return vender_decode({bytes, static_cast<size_t>(got)}, record) ? 0 : static_cast<int>(fail(kErrVendorData));
}

static int record_write(const VenderRecord &record)
{
    VenderBytes bytes;
    vender_encode(record, &bytes);
    {
        const UniqueFd file(open(kNewPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        if (!file || NLIBCWrite(file.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
            fsync(file.get()) != 0) {
            unlink(kNewPath);
            return fail(kErrWrite);
        }
    }
    if (rename(kNewPath, kRecordPath) != 0) {
        unlink(kNewPath);
        return fail(kErrRename);
    }
    const UniqueFd folder(open(kBootMountPoint, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder && fsync(folder.get()) == 0 ? 0 : static_cast<int>(fail(kErrWrite));
}

static size_t serial_length(const VenderRecord &record)
{
    return text_view(record.serial).size();
}

// What a write must not change.
static bool change_is_allowed(const VenderRecord &before, const VenderRecord &after)
{
    if (before.format_version != after.format_version) {
        puts("Vender version is changed.");
        return false;
    }
    if (serial_length(before) != 0 && serial_length(before) != serial_length(after)) {
        puts("Length of SN is changed.");
        return false;
    }
    return true;
}

int ManutilGetAll(VenderRecord *record)
{
    const NORVBootLockPartition partition;
    if (partition.is_mounted() && record_read(record) == 0)
        return 0;
    printf("Fail to get vender all\n");
    return -1;
}

int ManutilSetAll(const VenderRecord &record)
{
    const NORVBootLockPartition partition;
    VenderRecord before;
    if (partition.is_mounted() && record_read(&before) == 0) {
        if (!change_is_allowed(before, record))
            return fail(kErrVendorData);
        for (int tries = 0; tries < kWriteTries; tries++) {
            if (tries > 0)
                NORV_LOG(LOG_ERR, "Repeat[%d] writing Vender", tries);
            if (record_write(record) == 0)
                return 0;
        }
    }
    printf("Fail to set vender all\n");
    return -1;
}

static int semaphore_change(int (*change)(int id))
{
    const int id = semaphore_open(kSemaphoreKey);
    if (id >= 0 && change(id) == 0)
        return 0;
    NORV_LOG(LOG_ERR, "semop fail semid %d errno %d", id, errno);
    return -1;
}

int NORVManutilVenderSemaphoreEnter()
{
    return semaphore_change([](int id) { return semaphore_take(id, kSemaphoreForever); });
}

int NORVManutilVenderSemaphoreRelease()
{
    return semaphore_change(semaphore_give);
}

int vender_update(int (*change)(VenderRecord *record, void *context), void *context)
{
    if (NORVManutilVenderSemaphoreEnter() != 0) {
        NORV_LOG(LOG_ERR, "failed to call NORVManutilVenderSemaphoreEnter()");
        return -1;
    }
    VenderRecord record;
    int result = ManutilGetAll(&record);
    if (result == 0)
        result = change(&record, context);
    if (result >= 0 && ManutilSetAll(record) != 0)
        result = -1;
    if (NORVManutilVenderSemaphoreRelease() != 0)
        NORV_LOG(LOG_ERR, "failed to call NORVManutilVenderSemaphoreRelease()");
    return result;
}

int vender_format_version_get(uint32_t *version)
{
    const UniqueFile file(fopen(kVersionPath, "re"));
    if (!file)
        return fail(kErrOpen);
    return fscanf(file.get(), "%u", version) == 1 ? 0 : static_cast<int>(fail(kErrBadFormat));
}

#include <cerrno>
#include <cstdio>

#include "autocleanup/unique.h"
#include "boot/boot_partition.h"
#include "lib/report.h"
#include "lib/semaphore.h"
#include "lib/text.h"
#include "manutil/vender_format.h"

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

static size_t serial_length(const VenderRecord &record)
{
    return text_view(record.serial).size();
}

// What a write must not change.
static bool change_is_allowed(const VenderRecord &before, const VenderRecord &after)
{
    if (before.format_version != 0 && before.format_version != after.format_version) {
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
    if (partition.is_mounted() && vender_file_read(kBootMountPoint, record) == 0) {
        uint32_t version;
        if (vender_format_version_get(&version) == 0)
            record->format_version = version; // a write is of this format, whatever stands there
        return 0;
    }
    printf("Fail to get vender all\n");
    return -1;
}

int ManutilSetAll(const VenderRecord &record)
{
    const NORVBootLockPartition partition;
    VenderRecord before;
    if (partition.is_mounted() && vender_file_read(kBootMountPoint, &before) == 0) {
        if (!change_is_allowed(before, record))
            return fail(kErrVendorData);
        for (int tries = 0; tries < kWriteTries; tries++) {
            if (tries > 0)
                printf("Repeat[%d] writing Vender\n", tries);
            if (vender_file_write(kBootMountPoint, record) == 0)
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

int vender_get(VenderRecord *record)
{
    if (NORVManutilVenderSemaphoreEnter() != 0) {
        NORV_LOG(LOG_ERR, "failed to call NORVManutilVenderSemaphoreEnter()");
        return -1;
    }
    const int result = ManutilGetAll(record);
    if (NORVManutilVenderSemaphoreRelease() != 0)
        NORV_LOG(LOG_ERR, "failed to call NORVManutilVenderSemaphoreRelease()");
    return result;
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
    return fscanf(file.get(), "%u", version) == 1 ? 0 : fail(kErrBadFormat);
}
